// Following a long operation and cancelling it from another thread.
//
//   progress_cancel
//
// A VProgress made current with VProgressScope receives the fraction done of every library call on this
// thread, between bands of rows; any thread may call cancel(), and the running call then stops at its next
// band with the status "Operation cancelled", leaving its destination untouched. Here a wide Gaussian blur of
// a 12-megapixel image is cancelled by a second thread once a tenth of it is done, as a Cancel button would.
#include <vexa/Vexa.h>

#include <cstdio>
#include <future>
#include <thread>

int main()
{
    VImage image;
    image.create(4000, 3000, VEXA::XRGB, VEXA::Channel8u, VEXA::OriginBottomLeft, VEXA::RowsAlignNone);
    VImage blurred = image.createCompatible();
    double grey[] = {128, 128, 128};
    if (const VStatus status = VEXA::fillImage(&blurred, grey, 3); !status)
        return 1;
    const QByteArray before = blurred.hash();

    std::promise<void> tenthDone;
    bool signalled = false;
    // Runs on this thread, inside the call; it must not touch the images being worked on.
    VProgress progress([&](double fraction, const QString& stage) {
        std::printf("%3.0f%% %s\n", 100 * fraction, qPrintable(stage));
        if (!signalled && fraction >= 0.1) {
            signalled = true;
            tenthDone.set_value();
        }
    });
    std::thread canceller([&progress, done = tenthDone.get_future()] {
        done.wait();
        progress.cancel();
    });

    VStatus status;
    {
        const VProgressScope scope(&progress);
        status = VEXA::smoothGaussian(image, &blurred, 61);
    }
    if (!signalled) // the call ended early: let the other thread go
        tenthDone.set_value();
    canceller.join();

    std::printf("stopped at %.0f%%: %s (issue %d)\n", 100 * progress.fraction(), qPrintable(status.message()),
                int(status.issue()));
    const bool untouched = blurred.hash() == before;
    std::printf("destination %s\n", untouched ? "untouched" : "changed");
    return !status && status.issue() == Issue::Cancelled && untouched ? 0 : 1;
}
