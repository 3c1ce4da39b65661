#include <vexa/imp/VHistogram.h>

#include <vcore/MathUtils.h>

#include <QSharedData>

#include <algorithm>
#include <cmath>

using namespace VEXA;

struct VHistogram::Block : QSharedData {
    HistogramData data;
};

VHistogram::VHistogram() : d(new Block) {}
VHistogram::VHistogram(const VHistogram& other) = default;
VHistogram& VHistogram::operator=(const VHistogram& other) = default;
VHistogram::~VHistogram() = default;

HistogramData* VHistogram::data()
{
    d.detach();
    return &d->data;
}

const HistogramData* VHistogram::constData() const { return &d->data; }

bool VHistogram::isEnabled(Component component) const
{
    const auto it = constData()->components.find(component);
    return it != constData()->components.end() && it->second.enabled;
}

const qint64* VHistogram::componentData(Component component) const
{
    const auto it = constData()->components.find(component);
    return it != constData()->components.end() && it->second.enabled ? it->second.componentData : nullptr;
}

qint64 VHistogram::maxValue() const { return constData()->maxValue; }

qint64* VHistogram::ensureCreated(Component component)
{
    HistogramComponent& record = data()->components[component];
    record.component = component;
    return record.componentData;
}

void VHistogram::setEnabled(Component component, bool enabled)
{
    HistogramData* p = data();
    if (isEnabled(component) != enabled) {
        ensureCreated(component);
        p->components[component].enabled = enabled;
    }
    p->status = VStatus::Ok;
}

void VHistogram::update()
{
    HistogramData* p = data();
    qint64 maximum = 0;
    for (const auto& entry : p->components)
        maximum = std::max(maximum, *std::max_element(entry.second.componentData, entry.second.componentData + 256));
    p->maxValue = maximum;
}

void VHistogram::disableAllComponents()
{
    for (auto& entry : data()->components)
        entry.second.enabled = false;
}

int VHistogram::skipData() const { return constData()->skipData; }
void VHistogram::setSkipData(int step) { data()->skipData = step; }
VStatus VHistogram::status() const { return constData()->status; }
void VHistogram::setStatus(const VStatus& status) { data()->status = status; }

bool VHistogram::isEqual(const VHistogram& other) const
{
    if (maxValue() != other.maxValue() || pinsCount() != other.pinsCount())
        return false;
    for (Component c : {ComponentLuminance, ComponentRed, ComponentGreen, ComponentBlue}) {
        if (isEnabled(c) != other.isEnabled(c))
            return false;
        if (isEnabled(c) && !std::equal(componentData(c), componentData(c) + 256, other.componentData(c)))
            return false;
    }
    return true;
}

struct VHistogramCommon::Block : QSharedData {
    HistogramDataCommon data;
};

VHistogramCommon::VHistogramCommon() : d(new Block) {}
VHistogramCommon::VHistogramCommon(const VHistogramCommon& other) = default;
VHistogramCommon& VHistogramCommon::operator=(const VHistogramCommon& other) = default;
VHistogramCommon::~VHistogramCommon() = default;

HistogramDataCommon* VHistogramCommon::data()
{
    d.detach();
    return &d->data;
}

namespace {

const std::vector<double>& valuesOf(const HistogramDataCommon& data, int component)
{
    static const std::vector<double> none;
    const auto it = data.components.find(component);
    return it == data.components.end() ? none : it->second.data;
}

} // namespace

void VHistogramCommon::appendData(double value, int component) { data()->components[component].data.push_back(value); }

void VHistogramCommon::clearData()
{
    for (auto& entry : data()->components)
        entry.second.data.clear();
}

int VHistogramCommon::countOfData(int component) const { return int(valuesOf(d->data, component).size()); }

double VHistogramCommon::minDataValue(int component) const
{
    const auto& v = valuesOf(d->data, component);
    return v.empty() ? 0.0 : *std::min_element(v.begin(), v.end());
}

double VHistogramCommon::maxDataValue(int component) const
{
    const auto& v = valuesOf(d->data, component);
    return v.empty() ? 0.0 : *std::max_element(v.begin(), v.end());
}

double VHistogramCommon::sumDataValue(int component) const
{
    double sum = 0.0;
    for (double x : valuesOf(d->data, component))
        sum += x;
    return sum;
}

double VHistogramCommon::meanDataValue(int component) const
{
    const int n = countOfData(component);
    return n == 0 ? 0.0 : sumDataValue(component) / n;
}

double VHistogramCommon::devDataValue(int component) const
{
    const auto& v = valuesOf(d->data, component);
    if (v.empty())
        return 0.0;
    const double mean = meanDataValue(component);
    double squares = 0.0;
    for (double x : v)
        squares += (x - mean) * (x - mean);
    return std::sqrt(squares / double(v.size()));
}

void VHistogramCommon::setPinsBorders(std::vector<double> borders) { data()->borders = std::move(borders); }

void VHistogramCommon::setPinsBordersEven(int n)
{
    if (n <= 0) {
        setPinsBorders({});
        return;
    }
    const double low = std::min(minDataValue(0), 0.0);
    const double high = maxDataValue(0);
    const double step = MathUtils::roundForHistogram((high - low) / n);
    std::vector<double> borders(size_t(n) + 1);
    for (int i = 0; i < n; ++i)
        borders[size_t(i)] = low + i * step;
    borders[size_t(n)] = std::min(low + n * step, high);
    setPinsBorders(std::move(borders));
}

std::vector<double> VHistogramCommon::pinsBorders() const { return d->data.borders; }
int VHistogramCommon::pinsCount() const { return d->data.borders.empty() ? 0 : int(d->data.borders.size()) - 1; }

std::vector<quint32> VHistogramCommon::componentValues(int component) const
{
    const auto it = d->data.components.find(component);
    return it == d->data.components.end() ? std::vector<quint32>() : it->second.counts;
}

QList<double> VHistogramCommon::histogramData(int component) const
{
    const auto& v = valuesOf(d->data, component);
    return QList<double>(v.begin(), v.end());
}

bool VHistogramCommon::isEnabled(int component) const
{
    const auto it = d->data.components.find(component);
    return it != d->data.components.end() && it->second.enabled;
}

void VHistogramCommon::setEnabled(int component, bool enabled)
{
    data()->components[component].enabled = enabled;
    data()->status = VStatus::Ok;
}

void VHistogramCommon::ensureCreated(int component) { data()->components[component]; }

void VHistogramCommon::disableAllComponents()
{
    for (auto& entry : data()->components)
        entry.second.enabled = false;
}

void VHistogramCommon::update()
{
    HistogramDataCommon* p = data();
    std::sort(p->borders.begin(), p->borders.end());
    const size_t bins = p->borders.size() < 2 ? 0 : p->borders.size() - 1;
    quint32 maximum = 0;
    for (auto& entry : p->components) {
        std::vector<quint32>& counts = entry.second.counts;
        counts.assign(bins, 0);
        if (bins == 0)
            continue;
        for (double x : entry.second.data) {
            if (!(x >= p->borders.front() && x <= p->borders.back()))
                continue;
            // The bin whose lower border is the last one not above x; the top border joins the last bin.
            const size_t upper = size_t(std::upper_bound(p->borders.begin(), p->borders.end(), x) - p->borders.begin());
            const size_t bin = std::min(upper - 1, bins - 1);
            maximum = std::max(maximum, ++counts[bin]);
        }
    }
    p->maxValue = maximum;
}

quint32 VHistogramCommon::maxValue() const { return d->data.maxValue; }
VStatus VHistogramCommon::status() const { return d->data.status; }
void VHistogramCommon::setStatus(const VStatus& status) { data()->status = status; }
