/// @file
/// @brief Progress and cancellation of long work (group @ref progress).
#pragma once

#include <vexa/vexa_export.h>

#include <QString>

#include <atomic>
#include <functional>

/// @addtogroup progress
/// A caller makes a VProgress with a callback, makes it current for its own thread with a VProgressScope
/// and calls the library as usual; any other thread may call VProgress::cancel() at any time. Long
/// operations on that thread report between bands of rows (never per pixel) and, once cancel() has been
/// called, stop at the next band and return a failed status whose text is "Operation cancelled" (translated;
/// issue Issue::Cancelled; logged like every failure). What a cancelled operation leaves in its destination
/// is said with each operation.
///
/// The callback runs on the calling thread, inside the operation, with a fraction that never falls and
/// reaches 1 when the outermost piece of work completes, and a short stage text ("merging shot 3 of 8").
/// It must not call into the library on the images the operation is working on.
///
/// Without a current VProgress nothing is reported and nothing can be cancelled; the checks then cost one
/// thread-local read per band. The library starts no threads: the scope belongs to the caller's thread.
/// @{

/// The progress of one piece of work and the request to cancel it. Neither copyable nor movable; the caller
/// owns it and keeps it alive while it is current. cancel() and isCancelled() are safe from any thread at any
/// time; everything else belongs to the thread doing the work.
class VEXA_EXPORT VProgress {
public:
    /// Receives the fraction of the whole done (0 to 1, never falling) and a short stage text.
    using Callback = std::function<void(double fraction, const QString& stage)>;

    /// A progress without a callback: it keeps the fraction and can be cancelled, and reports to no one.
    VProgress() = default;
    /// A progress that hands every report to @p callback.
    explicit VProgress(Callback callback) : callback_(std::move(callback)) {}
    /// Not copyable: work and other threads hold it by address.
    VProgress(const VProgress&) = delete;
    /// Not assignable.
    VProgress& operator=(const VProgress&) = delete;

    /// Asks the work to stop at its next check. Safe from any thread, at any time; stays set until reset().
    void cancel() noexcept { cancelled_.store(true, std::memory_order_relaxed); }
    /// Whether cancel() has been called since the progress was made or last reset. Safe from any thread.
    bool isCancelled() const noexcept { return cancelled_.load(std::memory_order_relaxed); }
    /// Clears the request and the fraction, and makes the whole the current section again, for a new piece
    /// of work. Call it while no work is using the progress.
    void reset() noexcept;

    /// Called by the work: @p fraction of the current section (clamped to 0..1), mapped onto the whole and
    /// handed to the callback with @p stage unless it would fall below the fraction reported last (an equal
    /// one is handed on).
    void report(double fraction, const QString& stage);
    /// The fraction of the whole reported last (0 before any report and after reset()).
    double fraction() const { return last_; }

    /// The part [begin, end) of the current section that nested work reports into; the previous section
    /// comes back when the Section goes. Sections nest as scopes do: each must go before the one made
    /// before it. Not copyable.
    class VEXA_EXPORT Section {
    public:
        /// Narrows @p progress's current section to its part from @p begin to @p end (fractions of it;
        /// begin is clamped to 0..1, end to begin..1). A null @p progress makes a Section that does nothing.
        Section(VProgress* progress, double begin, double end);
        /// Gives the progress back the section it had before.
        ~Section();
        /// Not copyable.
        Section(const Section&) = delete;
        /// Not assignable.
        Section& operator=(const Section&) = delete;

    private:
        VProgress* progress_;
        double begin_ = 0.0, end_ = 1.0;
    };

private:
    std::atomic<bool> cancelled_{false};
    Callback callback_;
    double last_ = 0.0;
    double begin_ = 0.0, end_ = 1.0; // the current section of the whole
};

/// Makes a progress current for the calling thread while the scope lives; scopes nest, the innermost
/// governs, and each must go before the one made before it on its thread. A null progress makes none current
/// (hiding an outer one). Not copyable.
class VEXA_EXPORT VProgressScope {
public:
    /// Makes @p progress (which must outlive the scope, or be null) current for the calling thread.
    explicit VProgressScope(VProgress* progress);
    /// Makes current again what was current before the scope.
    ~VProgressScope();
    /// Not copyable.
    VProgressScope(const VProgressScope&) = delete;
    /// Not assignable.
    VProgressScope& operator=(const VProgressScope&) = delete;

    /// The progress current for the calling thread, or null.
    static VProgress* current() noexcept;

private:
    VProgress* previous_;
};

/// @}
