// Progress and cancellation of long work.
//
// A caller makes a VProgress with a callback, makes it current for its own thread with a VProgressScope
// and calls the library as usual; any other thread may call cancel() at any time. Long operations on that
// thread report between bands of rows (never per pixel) and, once cancel() has been called, stop at the
// next band and return a failed status whose text is "Operation cancelled" (translated; logged like every
// failure). What a cancelled operation leaves in its destination is said in each operation's header.
//
// The callback runs on the calling thread, inside the operation, with a fraction that never falls and
// reaches 1 when the outermost piece of work completes, and a short stage text ("merging shot 3 of 8").
// It must not call into the library on the images the operation is working on.
//
// Without a current VProgress nothing is reported and nothing can be cancelled; the checks then cost one
// thread-local read per band. The library starts no threads: the scope belongs to the caller's thread.
#pragma once

#include <vexa/vexa_export.h>

#include <QString>

#include <atomic>
#include <functional>

class VEXA_EXPORT VProgress {
public:
    using Callback = std::function<void(double fraction, const QString& stage)>;

    VProgress() = default;
    explicit VProgress(Callback callback) : callback_(std::move(callback)) {}
    VProgress(const VProgress&) = delete;
    VProgress& operator=(const VProgress&) = delete;

    // Safe from any thread, at any time; stays set until reset().
    void cancel() noexcept { cancelled_.store(true, std::memory_order_relaxed); }
    bool isCancelled() const noexcept { return cancelled_.load(std::memory_order_relaxed); }
    // Clears the request and the fraction, for a new piece of work.
    void reset() noexcept;

    // Called by the work: `fraction` of the current section (0..1), mapped onto the whole and handed to
    // the callback unless it would fall.
    void report(double fraction, const QString& stage);
    double fraction() const { return last_; }

    // The part [begin, end) of the current section that nested work reports into; the previous section
    // comes back when the Section goes.
    class VEXA_EXPORT Section {
    public:
        Section(VProgress* progress, double begin, double end);
        ~Section();
        Section(const Section&) = delete;
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

// Makes a progress current for the calling thread while the scope lives; scopes nest, the innermost
// governs. A null progress makes none current.
class VEXA_EXPORT VProgressScope {
public:
    explicit VProgressScope(VProgress* progress);
    ~VProgressScope();
    VProgressScope(const VProgressScope&) = delete;
    VProgressScope& operator=(const VProgressScope&) = delete;

    static VProgress* current() noexcept;

private:
    VProgress* previous_;
};
