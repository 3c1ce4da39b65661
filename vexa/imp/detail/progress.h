// Checkpoints of long work, placed between bands of rows or between steps, never per pixel. They read the
// calling thread's current VProgress; without one they cost a thread-local read and do nothing.
//
// The one rule of every operation: a cancelled call leaves its destination untouched. Cancellation is an
// exception thrown by a checkpoint, so it is only ever seen between bands or steps; work that writes the
// destination as it goes either runs whole (runWhole, Uninterruptible) or writes a scratch image that
// reaches the destination only once complete (the banded filters and warps).
#pragma once

#include <vexa/imp/VProgress.h>

#include <algorithm>
#include <optional>

namespace VEXA {

// Throws dip_exception_cancelled when the caller has cancelled the current progress.
void checkCancelled();
// Stops like checkCancelled(), then reports `fraction` (0..1) of the current section under `stage`.
void checkpoint(double fraction, const char* stage);
// Reports without checking: for the end of work that is complete and must not be called cancelled.
void reportProgress(double fraction, const char* stage);
// Whether the calling thread has a progress to report to and to be cancelled by: only then is work split
// into bands, so that without one every operation runs exactly as it always has.
inline bool progressIsCurrent() { return VProgressScope::current() != nullptr; }
// Whether the current progress, if any, has been cancelled (no throw).
bool isCancelled();

// For writers that go a row at a time inside a C library's error frame, where nothing may throw: after
// every 64th row, the rows done are reported; false once the caller has cancelled.
inline bool rowWritten(int y, int height, const char* stage)
{
    if ((y & 63) != 63)
        return true;
    if (isCancelled())
        return false;
    reportProgress(double(y + 1) / height, stage);
    return true;
}

// How many rows the next band takes: bands last about as long as a cancellation may wait for a few
// times over (a few milliseconds), measured as the work goes, whatever the operation costs per row.
class BandClock {
public:
    // `rowCost`: pixels per row, for a first guess; bands never fall below `minRows`.
    BandClock(int rows, long rowCost, int minRows = 1);
    int next() const { return rows_; }
    void done(int rows);

private:
    long long started_;
    int rows_;
    int total_;
    int minRows_;
};

// Work that runs whole at memory speed: checked before it starts (a cancelled call writes nothing), then
// done to the end and reported complete. Returns what work() returns.
template <class Work>
auto runWhole(const char* stage, Work&& work)
{
    checkCancelled();
    auto result = work();
    reportProgress(1.0, stage);
    return result;
}

// The steps of composite work, each mapped onto its own part of the current section: after to(0.3), what
// nested operations report (each of them 0 to 1) fills [the previous mark, 0.3). Each call first checks
// for a cancellation and reports the mark reached.
class ProgressSteps {
public:
    explicit ProgressSteps(const char* stage) : progress_(VProgressScope::current()), stage_(stage) {}
    void to(double end)
    {
        section_.reset();
        checkpoint(mark_, stage_);
        if (progress_)
            section_.emplace(progress_, mark_, end);
        mark_ = end;
    }

private:
    VProgress* progress_;
    const char* stage_;
    double mark_ = 0.0;
    std::optional<VProgress::Section> section_;
};

// The short final step of composite work that writes in place: checked once when it starts (a cancelled
// call writes nothing), then deaf to cancellation, its inner operations included, until it is done and
// reported complete under `stage`.
class Uninterruptible {
public:
    explicit Uninterruptible(const char* stage);
    ~Uninterruptible();
    Uninterruptible(const Uninterruptible&) = delete;
    Uninterruptible& operator=(const Uninterruptible&) = delete;

private:
    VProgress* outer_;
    const char* stage_;
    std::optional<VProgressScope> none_;
};

// Calls work(y0, y1) for consecutive bands covering rows [0, rows), with a checkpoint before each band
// and at the end, reporting the fraction of rows done under `stage`; bands have at least minRows rows.
template <class Work>
void forEachBand(int rows, long rowCost, const char* stage, Work&& work, int minRows = 1)
{
    BandClock clock(rows, rowCost, minRows);
    for (int y0 = 0; y0 < rows;) {
        checkpoint(double(y0) / rows, stage);
        const int y1 = y0 + std::min(rows - y0, clock.next());
        work(y0, y1);
        clock.done(y1 - y0);
        y0 = y1;
    }
    checkpoint(1.0, stage);
}

// Bands for locality only: each band's scratch stays in cache. There is no checkpoint between them; the
// work they make up is one step, checked as a whole by its caller.
struct CacheBands {
    int rows; // rows per band, at least 1
};
// Bands of about `cacheBytes` of rows `bytesPerRow` long, never fewer than minRows rows.
inline CacheBands cacheBands(long long bytesPerRow, long long cacheBytes = 1 << 18, int minRows = 16)
{
    return {int(std::max<long long>(minRows, cacheBytes / std::max<long long>(1, bytesPerRow)))};
}

// The rows [top, bottom) a band [y0, y1) reads with `margin` rows more on either side, clipped to [0, rows).
struct RowsRead {
    int top, bottom;
};
inline RowsRead rowsRead(int y0, int y1, int margin, int rows)
{
    return {std::max(0, y0 - margin), std::min(rows, y1 + margin)};
}

// Calls work(y0, y1) for consecutive cache bands covering rows [0, rows).
template <class Work>
void forEachBand(int rows, CacheBands bands, Work&& work)
{
    const int step = std::max(1, bands.rows);
    for (int y0 = 0; y0 < rows; y0 += step)
        work(y0, std::min(rows, y0 + step));
}

} // namespace VEXA
