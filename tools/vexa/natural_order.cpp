#include "natural_order.h"

namespace vexatool {

bool naturalLess(const QString& a, const QString& b)
{
    int i = 0, j = 0;
    while (i < a.size() && j < b.size()) {
        if (a[i].isDigit() && b[j].isDigit()) {
            // Runs of digits compare as numbers: leading zeros aside, the longer run is the larger.
            while (i < a.size() && a[i] == QLatin1Char('0') && i + 1 < a.size() && a[i + 1].isDigit())
                ++i;
            while (j < b.size() && b[j] == QLatin1Char('0') && j + 1 < b.size() && b[j + 1].isDigit())
                ++j;
            int ei = i, ej = j;
            while (ei < a.size() && a[ei].isDigit())
                ++ei;
            while (ej < b.size() && b[ej].isDigit())
                ++ej;
            if (ei - i != ej - j)
                return ei - i < ej - j;
            const int order = QStringView(a).mid(i, ei - i).compare(QStringView(b).mid(j, ej - j));
            if (order != 0)
                return order < 0;
            i = ei;
            j = ej;
            continue;
        }
        const int order = QString::compare(QString(a[i]), QString(b[j]), Qt::CaseInsensitive);
        if (order != 0)
            return order < 0;
        ++i;
        ++j;
    }
    if (i < a.size() || j < b.size())
        return j < b.size() && i >= a.size();
    return a < b; // equal but for case or leading zeros: any fixed order
}

} // namespace vexatool
