#include "Help.h"

#include <QAction>
#include <QCoreApplication>
#include <QDialog>
#include <QDialogButtonBox>
#include <QMessageBox>
#include <QTextBrowser>
#include <QVBoxLayout>

#include <opencv2/core/utility.hpp>

#include <algorithm>

namespace studio {

namespace {

// A page of text in a window of its own that stays open beside the main one.
void showPage(QWidget* window, const char* name, const QString& title, const QString& html)
{
    auto* page = window->findChild<QDialog*>(QLatin1String(name));
    if (!page) {
        page = new QDialog(window);
        page->setObjectName(QLatin1String(name));
        auto* layout = new QVBoxLayout(page);
        auto* text = new QTextBrowser;
        text->setOpenExternalLinks(true);
        layout->addWidget(text);
        auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close);
        QObject::connect(buttons, &QDialogButtonBox::rejected, page, &QDialog::hide);
        layout->addWidget(buttons);
        page->resize(560, 520);
    }
    page->setWindowTitle(title);
    page->findChild<QTextBrowser*>()->setHtml(html);
    page->show();
    page->raise();
}

} // namespace

void showGuide(QWidget* window)
{
    showPage(window, "guideDialog", QCoreApplication::translate("studio::Help", "Vexa Studio guide"),
             QCoreApplication::translate(
                 "studio::Help",
                 "<h3>Focus stacking in five steps</h3>"
                 "<ol>"
                 "<li><b>Open the shots</b> (File &gt; Open shots or Open folder, or drop files or a folder on the "
                 "window). They are listed in the order of their names: near focus first is usual.</li>"
                 "<li><b>Manage the stack.</b> Clear a shot's box to leave it out; move shots earlier or later; "
                 "<i>Make it the reference</i> moves a shot to the front, and the others are aligned and exposed to "
                 "it. Shots that are only added after the last stack are merged onto it without starting again.</li>"
                 "<li><b>Stack.</b> <i>Depth map</i> is made for real, hand-held series: it matches exposure and "
                 "white balance, follows focus breathing, shake and parallax with <i>Automatic</i> alignment, and "
                 "keeps 16-bit shots at 16 bits. Cancel stops at once and changes nothing.</li>"
                 "<li><b>Check and retouch.</b> <i>Before and after</i> compares the result with the selected shot; "
                 "<i>Depth map</i> shows which shot each pixel came from. The <i>Retouch brush</i> (B) paints the "
                 "result from the selected shot, or from the shot sharpest where the stroke starts, exactly as the "
                 "merge aligned it; every stroke can be undone.</li>"
                 "<li><b>Crop and save.</b> <i>Crop</i> (C) takes a rectangle, free or at a ratio, Enter applies it. "
                 "Save keeps 16 bits in PNG and TIFF and carries the first shot's EXIF and colour profile.</li>"
                 "</ol>"
                 "<p><b>Many stacks:</b> File &gt; Batch stacking queues folders and stacks each with the settings of "
                 "the Shots panel, saving each result beside its folder.</p>"
                 "<p><b>Viewing:</b> the wheel zooms about the cursor, dragging pans (the middle button while the "
                 "brush or the crop is on), Ctrl+1 shows 100%, Ctrl+0 fits the window.</p>"));
}

void showShortcuts(QWidget* window)
{
    QList<QPair<QString, QString>> rows;
    for (const QAction* action : window->findChildren<QAction*>()) {
        if (action->shortcut().isEmpty() || action->text().isEmpty())
            continue;
        // Actions whose text changes with the state (Undo names the step) give a fixed name of their own.
        QString name = action->property("shortcutName").toString();
        if (name.isEmpty())
            name = action->text();
        name.remove(QLatin1Char('&'));
        rows.append({action->shortcut().toString(QKeySequence::NativeText), name});
    }
    std::sort(rows.begin(), rows.end(), [](const auto& a, const auto& b) { return a.second < b.second; });
    rows.erase(std::unique(rows.begin(), rows.end()), rows.end());
    QString html = QStringLiteral("<table cellpadding=\"3\">");
    for (const auto& [keys, name] : rows)
        html +=
            QStringLiteral("<tr><td><b>%1</b></td><td>%2</td></tr>").arg(keys.toHtmlEscaped(), name.toHtmlEscaped());
    html += QStringLiteral("</table>");
    showPage(window, "shortcutsDialog", QCoreApplication::translate("studio::Help", "Keyboard shortcuts"), html);
}

void showAbout(QWidget* window)
{
    QMessageBox::about(
        window, QCoreApplication::translate("studio::Help", "About Vexa Studio"),
        QCoreApplication::translate("studio::Help",
                                    "<h3>Vexa Studio %1</h3><p>Focus stacking and image tools on the Vexa library.</p>"
                                    "<p>Vexa library %1<br>Qt %2 (built with %3)<br>OpenCV %4</p>")
            .arg(QStringLiteral(VEXA_VERSION), QString::fromLatin1(qVersion()), QStringLiteral(QT_VERSION_STR),
                 QString::fromStdString(cv::getVersionString())));
}

} // namespace studio
