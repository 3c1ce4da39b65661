/// @file
/// @brief Histogram containers: 8-bit and real-valued histograms, and level curves (group @ref histograms).
#pragma once

#include <QExplicitlySharedDataPointer>
#include <QList>

#include <map>
#include <vector>

#include <vlog/VLog.h>
#include <vexa/imp/formats.h>
#include <vexa/vexa_export.h>

namespace VEXA {

/// @addtogroup histograms
/// **Containers.** VHistogram holds the counts of 8-bit components, 256 bins per component, as
/// calculateHistogram() and its siblings fill them; VHistogramCommon counts arbitrary real values into bins
/// whose borders the caller chooses; VHistogramAdjustComponent describes one level curve of
/// adjustHistogramByComponents(). The structures HistogramData and HistogramDataCommon are the classes'
/// bodies, open for direct access.
///
/// **Threads (containers):** VHistogram and VHistogramCommon are shared copy-on-write values with atomic
/// reference counts. Copies share one body until one of them changes: every non-const member detaches
/// first (VHistogram::data(), VHistogramCommon::data() and VHistogram::ensureCreated() included), const
/// members never do. So copies may be read and changed on different threads at once; one object must not
/// be changed while another thread uses it.
/// @{

/// The counts of one component of a VHistogram.
struct HistogramComponent {
    int component = 0;              ///< The VEXA::Component this record counts.
    qint64 componentData[256] = {}; ///< The number of values 0 to 255 counted, by value.
    bool enabled = false;           ///< Whether the component is enabled (VHistogram::isEnabled()).
};

/// The body of a VHistogram, as VHistogram::data() and VHistogram::constData() expose it.
struct HistogramData {
    /// One record per component ever enabled or created; records are never removed.
    std::map<int, HistogramComponent> components;
    qint64 maxValue = 0; ///< The largest count of any record as of the last VHistogram::update(); 0 before.
    VStatus status;      ///< What VHistogram::status() returns.
    int skipData = 0;    ///< The sampling step of calculateHistogramFast() (VHistogram::skipData()).
};

/// The values and counts of one component of a VHistogramCommon.
struct HistogramCommonComponent {
    std::vector<double> data; ///< The values appended (VHistogramCommon::appendData()), in order.
    bool enabled = false;     ///< Whether the component is enabled; counting does not depend on it.
    /// The count of each bin as of the last VHistogramCommon::update(), one per bin; empty before.
    std::vector<quint32> counts;
};

/// The body of a VHistogramCommon, as VHistogramCommon::data() exposes it.
struct HistogramDataCommon {
    std::vector<double> borders; ///< The bin borders as set; VHistogramCommon::update() sorts them.
    /// One record per component number ever given a value, enabled or created; records are never removed.
    std::map<int, HistogramCommonComponent> components;
    quint32 maxValue = 0; ///< The largest bin count of any record as of the last VHistogramCommon::update().
    VStatus status;       ///< What VHistogramCommon::status() returns.
};

/// One level curve: two control points and the cut range (outputs at or below cutLow, or above cutHigh,
/// become 0).
///
/// The curve maps each input byte i: inputs up to inputLow give outputLow, inputs from inputHigh on give
/// outputHigh, and between them the straight line through the two points, truncated: trunc(i k +
/// (outputLow - inputLow k)) in double precision, with k = (outputHigh - outputLow) / (inputHigh -
/// inputLow). When inputHigh is below inputLow the two points are swapped first; when they are equal,
/// inputs below give outputLow and the rest outputHigh. Then every output o with o <= cutLow or o > cutHigh becomes 0, so cutLow 0 and
/// cutHigh 255 cut nothing. A plain aggregate: the fields have no default values.
struct VHistogramAdjustComponent {
    unsigned char inputLow;   ///< Input of the first control point.
    unsigned char outputLow;  ///< Output of the first control point.
    unsigned char inputHigh;  ///< Input of the second control point.
    unsigned char outputHigh; ///< Output of the second control point.
    unsigned char cutLow;     ///< Outputs at or below this become 0 (0: only 0 itself, which changes nothing).
    unsigned char cutHigh;    ///< Outputs above this become 0 (255: none).
};
static_assert(sizeof(VHistogramAdjustComponent) == 6);

/// @}

} // namespace VEXA

/// @addtogroup histograms
/// @{

/// Counts of 8-bit values: 256 bins for each of several components (VEXA::Component keys), each enabled
/// or not, with the largest count, a sampling step and a status.
///
/// calculateHistogram(), calculateHistogramFast() and calculateHistogramBGR() fill it: they disable every
/// record, then enable and fill the components they count, and leave maxValue() to update(). A shared
/// copy-on-write value with an atomic count: copies share one body until one of them changes (every
/// non-const member detaches first), so copies may be used on different threads at once; one object must
/// not be changed while another thread uses it.
class VEXA_EXPORT VHistogram {
public:
    /// An empty histogram: no records, maxValue() 0, skipData() 0 and a good status.
    VHistogram();
    /// Shares other's body; the counts are copied only when one of the two changes.
    VHistogram(const VHistogram& other);
    /// Shares other's body, as the copy constructor.
    VHistogram& operator=(const VHistogram& other);
    /// Gives up this handle's share of the body.
    ~VHistogram();

    /// The number of bins of every component: 256.
    static int pinsCount() { return 256; }
    /// Whether component has a record and it is enabled.
    bool isEnabled(VEXA::Component component) const;
    /// The 256 counts of an enabled component; null when it has no record or is disabled.
    /// The pointer reads the body this histogram shares at the time of the call.
    const qint64* componentData(VEXA::Component component) const;
    /// The largest count of any record as of the last update(); 0 for a new histogram. The calculations
    /// do not update it.
    qint64 maxValue() const;
    /// Enables or disables component. Enabling a component without a record creates it with zero counts;
    /// disabling keeps the counts. The status becomes good in either case.
    void setEnabled(VEXA::Component component, bool enabled);
    /// maxValue becomes the largest count of every record, enabled or not (0 without records).
    void update();
    /// Disables every record; the counts are kept.
    void disableAllComponents();
    /// The sampling step of calculateHistogramFast(): every skipData()-th row and column is counted, a
    /// value below 1 counting every pixel. 0 for a new histogram.
    int skipData() const;
    /// Sets skipData(); any value is stored.
    void setSkipData(int step);
    /// A status carried with the histogram: good for a new one and after setEnabled() (so after every
    /// calculation that got as far as counting); otherwise what setStatus() last set.
    VStatus status() const;
    /// Sets status().
    void setStatus(const VStatus& status);
    /// Equal maxima, then for components 2..5 equal enabled flags and, where both are enabled, equal counts.
    /// Components 2..5 are ComponentLuminance, ComponentRed, ComponentGreen and ComponentBlue; other keys,
    /// the counts of disabled components, skipData() and status() play no part.
    bool isEqual(const VHistogram& other) const;

    /// The body for reading and writing. Detaches first, so that copies keep their counts; write through
    /// the pointer only while no later copy shares the body (call data() again after copying).
    VEXA::HistogramData* data();             // detaches
    /// The body for reading, without detaching: it may be shared with copies.
    const VEXA::HistogramData* constData() const;

    /// The counts of a component for writing: the record is created (disabled) when missing.
    /// Detaches first; the pointer, like data()'s, must not be written once a later copy shares the body.
    qint64* ensureCreated(VEXA::Component component);

private:
    struct Block;
    QExplicitlySharedDataPointer<Block> d;
};

/// A histogram of real values with bin borders of the caller's choice.
///
/// Values are appended per component (any int key); setPinsBorders() or setPinsBordersEven() set the bin
/// borders, and update() counts each component's values into the bins. Each component also gives
/// statistics of its values. A shared copy-on-write value like VHistogram: copies share one body until one
/// of them changes, so copies may be used on different threads at once; one object must not be changed
/// while another thread uses it.
class VEXA_EXPORT VHistogramCommon {
public:
    /// An empty histogram: no borders, no records, maxValue() 0 and a good status.
    VHistogramCommon();
    /// Shares other's body; values and counts are copied only when one of the two changes.
    VHistogramCommon(const VHistogramCommon& other);
    /// Shares other's body, as the copy constructor.
    VHistogramCommon& operator=(const VHistogramCommon& other);
    /// Gives up this handle's share of the body.
    ~VHistogramCommon();

    /// Appends value to component's values, creating its record (disabled) when missing. The counts change
    /// only at update().
    void appendData(double value, int component);
    /// Drops the values of every component; records, enabled flags, borders and counts stay.
    void clearData();
    /// The number of values appended to component. This and the statistics that follow (smallest, largest,
    /// mean, sum, deviation) are of the appended values of a component; 0 for a component without values.
    /// The deviation is the population standard deviation.
    int countOfData(int component) const;
    /// The smallest value of component; 0 without values. See countOfData().
    double minDataValue(int component) const;
    /// The largest value of component; 0 without values. See countOfData().
    double maxDataValue(int component) const;
    /// The mean, sumDataValue() / countOfData(); 0 without values.
    double meanDataValue(int component) const;
    /// The sum of the values, added in order; 0 without values.
    double sumDataValue(int component) const;
    /// The population standard deviation, sqrt(sum((x - mean)^2) / n); 0 without values.
    double devDataValue(int component) const;

    /// Sets the bin borders as given (update() sorts them): n + 1 borders make n bins, fewer than two none.
    void setPinsBorders(std::vector<double> borders);
    /// n even bins from min(0, smallest value of component 0) to its largest value, the width rounded by
    /// MathUtils::roundForHistogram; the last border never passes the largest value. n = 0 clears them.
    ///
    /// With low that start and w the rounded width (rounded up to 1, 2 or 5 times a power of ten), the
    /// borders are low + i w for i = 0 .. n - 1 and then min(low + n w, largest value). Since w may be
    /// well above the exact width, inner borders may pass the largest value too: the borders are then out
    /// of order until update() sorts them. Negative n clears them like 0; without values of component 0
    /// all n + 1 borders are 0.
    void setPinsBordersEven(int n);
    /// The borders as stored: as set, sorted only once update() has run.
    std::vector<double> pinsBorders() const;
    /// The number of bins: the number of borders less one, 0 without borders.
    int pinsCount() const;

    /// The count of each bin for component as of the last update(); empty when it has no record or was
    /// never counted.
    std::vector<quint32> componentValues(int component) const;
    /// The values appended to component, in order; empty when none.
    QList<double> histogramData(int component) const;
    /// Whether component has a record and it is enabled.
    bool isEnabled(int component) const;
    /// Enables or disables component, creating its record when missing; the status becomes good.
    void setEnabled(int component, bool enabled);
    /// Creates component's record (no values, disabled) when missing; nothing else changes.
    void ensureCreated(int component);
    /// Disables every record; values and counts are kept.
    void disableAllComponents();
    /// Sorts the borders and counts every component's values into the bins. Bins include their lower
    /// border; the last also its upper one; values outside [first border, last border] are dropped.
    ///
    /// Every record is counted, enabled or not, and NaN values are dropped too. A value goes to the bin
    /// whose lower border is the last border not above it. With fewer than two borders every record's
    /// counts become empty. maxValue() becomes the largest count of any bin (0 when nothing was counted).
    void update();
    /// The largest bin count of any record as of the last update(); 0 for a new histogram.
    quint32 maxValue() const;
    /// A status carried with the histogram: good for a new one and after setEnabled(); otherwise what
    /// setStatus() last set.
    VStatus status() const;
    /// Sets status().
    void setStatus(const VStatus& status);
    /// The body for reading and writing. Detaches first, so that copies keep theirs; write through the
    /// pointer only while no later copy shares the body (call data() again after copying).
    VEXA::HistogramDataCommon* data();

private:
    struct Block;
    QExplicitlySharedDataPointer<Block> d;
};

/// @}
