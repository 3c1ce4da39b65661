#include <vexa/imp/VProgress.h>

#include <vexa/imp/exceptions.h>

#include <algorithm>

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
