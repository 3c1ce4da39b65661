// Histograms of 8-bit components (VHistogram, 256 bins per component) and of arbitrary real values with
// chosen bin borders (VHistogramCommon). Both are shared copy-on-write values with atomic counts: copies
// may be read on several threads, and every writer detaches first.
#pragma once

#include <QExplicitlySharedDataPointer>
#include <QList>

#include <map>
#include <vector>

#include <vlog/VLog.h>
#include <vexa/imp/formats.h>
#include <vexa/vexa_export.h>

namespace VEXA {

struct HistogramComponent {
    int component = 0;
    qint64 componentData[256] = {};
    bool enabled = false;
};

struct HistogramData {
    // One record per component ever enabled or created; records are never removed.
    std::map<int, HistogramComponent> components;
    qint64 maxValue = 0;
    VStatus status;
    int skipData = 0;
};

struct HistogramCommonComponent {
    std::vector<double> data;
    bool enabled = false;
    std::vector<quint32> counts;
};

struct HistogramDataCommon {
    std::vector<double> borders;
    std::map<int, HistogramCommonComponent> components;
    quint32 maxValue = 0;
    VStatus status;
};

// One level curve: two control points and the cut range (outputs at or below cutLow, or above cutHigh,
// become 0).
struct VHistogramAdjustComponent {
    unsigned char inputLow;
    unsigned char outputLow;
    unsigned char inputHigh;
    unsigned char outputHigh;
    unsigned char cutLow;
    unsigned char cutHigh;
};
static_assert(sizeof(VHistogramAdjustComponent) == 6);

} // namespace VEXA

class VEXA_EXPORT VHistogram {
public:
    VHistogram();
    VHistogram(const VHistogram& other);
    VHistogram& operator=(const VHistogram& other);
    ~VHistogram();

    static int pinsCount() { return 256; }
    bool isEnabled(VEXA::Component component) const;
    // The 256 counts of an enabled component; null when it has no record or is disabled.
    const qint64* componentData(VEXA::Component component) const;
    qint64 maxValue() const;
    // Creates the record when needed; the status becomes good.
    void setEnabled(VEXA::Component component, bool enabled);
    // maxValue becomes the largest count of every record, enabled or not.
    void update();
    void disableAllComponents();
    int skipData() const;
    void setSkipData(int step);
    VStatus status() const;
    void setStatus(const VStatus& status);
    // Equal maxima, then for components 2..5 equal enabled flags and, where both are enabled, equal counts.
    bool isEqual(const VHistogram& other) const;

    VEXA::HistogramData* data();             // detaches
    const VEXA::HistogramData* constData() const;

    // The counts of a component for writing: the record is created (disabled) when missing.
    qint64* ensureCreated(VEXA::Component component);

private:
    struct Block;
    QExplicitlySharedDataPointer<Block> d;
};

class VEXA_EXPORT VHistogramCommon {
public:
    VHistogramCommon();
    VHistogramCommon(const VHistogramCommon& other);
    VHistogramCommon& operator=(const VHistogramCommon& other);
    ~VHistogramCommon();

    void appendData(double value, int component);
    void clearData();
    // Statistics of the appended values of a component; 0 for a component without values. The deviation
    // is the population standard deviation.
    int countOfData(int component) const;
    double minDataValue(int component) const;
    double maxDataValue(int component) const;
    double meanDataValue(int component) const;
    double sumDataValue(int component) const;
    double devDataValue(int component) const;

    void setPinsBorders(std::vector<double> borders);
    // n even bins from min(0, smallest value of component 0) to its largest value, the width rounded by
    // MathUtils::roundForHistogram; the last border never passes the largest value. n = 0 clears them.
    void setPinsBordersEven(int n);
    std::vector<double> pinsBorders() const;
    int pinsCount() const;

    std::vector<quint32> componentValues(int component) const;
    QList<double> histogramData(int component) const;
    bool isEnabled(int component) const;
    void setEnabled(int component, bool enabled);
    void ensureCreated(int component);
    void disableAllComponents();
    // Sorts the borders and counts every component's values into the bins. Bins include their lower
    // border; the last also its upper one; values outside [first border, last border] are dropped.
    void update();
    quint32 maxValue() const;
    VStatus status() const;
    void setStatus(const VStatus& status);
    VEXA::HistogramDataCommon* data();

private:
    struct Block;
    QExplicitlySharedDataPointer<Block> d;
};
