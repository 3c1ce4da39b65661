#include <vexa/imp/VProgress.h>

#include <vexa/imp/detail/progress.h>
#include <vexa/imp/exceptions.h>

#include <algorithm>
#include <chrono>

namespace {
thread_local VProgress* currentProgress = nullptr;
}

void VProgress::reset() noexcept
{
    cancelled_.store(false, std::memory_order_relaxed);
    last_ = 0.0;
    begin_ = 0.0;
    end_ = 1.0;
}

void VProgress::report(double fraction, const QString& stage)
{
    const double whole = begin_ + (end_ - begin_) * std::clamp(fraction, 0.0, 1.0);
    if (whole < last_)
        return;
    last_ = whole;
    if (callback_)
        callback_(whole, stage);
}

VProgress::Section::Section(VProgress* progress, double begin, double end) : progress_(progress)
{
    if (!progress_)
        return;
    begin_ = progress_->begin_;
    end_ = progress_->end_;
    const double span = end_ - begin_;
    const double from = std::clamp(begin, 0.0, 1.0);
    progress_->begin_ = begin_ + span * from;
    progress_->end_ = begin_ + span * std::clamp(end, from, 1.0);
}

VProgress::Section::~Section()
{
    if (!progress_)
        return;
    progress_->begin_ = begin_;
    progress_->end_ = end_;
}

VProgressScope::VProgressScope(VProgress* progress) : previous_(currentProgress) { currentProgress = progress; }

VProgressScope::~VProgressScope() { currentProgress = previous_; }

VProgress* VProgressScope::current() noexcept { return currentProgress; }

namespace VEXA {

void checkCancelled()
{
    const VProgress* progress = currentProgress;
    if (progress && progress->isCancelled())
        throw dip_exception_cancelled();
}

void checkpoint(double fraction, const char* stage)
{
    VProgress* progress = currentProgress;
    if (!progress)
        return;
    if (progress->isCancelled())
        throw dip_exception_cancelled();
    progress->report(fraction, QString::fromLatin1(stage));
}

} // namespace VEXA

namespace VEXA {

void reportProgress(double fraction, const char* stage)
{
    if (VProgress* progress = currentProgress)
        progress->report(fraction, QString::fromLatin1(stage));
}

bool isCancelled()
{
    const VProgress* progress = currentProgress;
    return progress && progress->isCancelled();
}

namespace {

long long nowNanoseconds()
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

// A band's aim: short enough that a cancellation waits for it well within 50 ms, long enough that
// per-call costs (OpenCV's set-up, its thread pool) stay small against the work.
constexpr long long bandNanoseconds = 12'000'000;

} // namespace

Uninterruptible::Uninterruptible(const char* stage) : stage_(stage)
{
    checkCancelled();
    outer_ = VProgressScope::current();
    none_.emplace(nullptr); // hides the outer progress from everything inside
}

Uninterruptible::~Uninterruptible()
{
    none_.reset();
    if (outer_)
        outer_->report(1.0, QString::fromUtf8(stage_));
}

BandClock::BandClock(int rows, long rowCost, int minRows)
    : started_(nowNanoseconds()), total_(std::max(rows, 1)), minRows_(std::clamp(minRows, 1, std::max(rows, 1)))
{
    rows_ = int(std::clamp<long>(65536 / std::max(rowCost, 1L), minRows_, total_));
}

void BandClock::done(int rows)
{
    const long long now = nowNanoseconds();
    const long long spent = std::max(now - started_, 1LL);
    started_ = now;
    // Towards the aim, by at most a factor of 4 a step, so one slow band (a page fault, a busy machine)
    // does not swing the size.
    const double scale = std::clamp(double(bandNanoseconds) / double(spent), 0.25, 4.0);
    rows_ = int(std::clamp(double(rows) * scale, double(minRows_), double(total_)));
}

} // namespace VEXA
