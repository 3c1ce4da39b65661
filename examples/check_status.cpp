// Checking what an operation returns.
//
//   check_status
//
// Every operation returns a VStatus: true when it worked, otherwise message() (the text as logged) and
// reason() (the same failure in words a person acts on). Every failure is also logged once; a program that
// handles failures itself installs a sink with VLog::addSink and gets each record, with its source and
// issue number, instead of the text on standard error. Here one call succeeds and one fails on purpose:
// a Gaussian blur of 32-bit integer pixels, a type the blur does not take.
#include <vexa/Vexa.h>

#include <cstdio>
#include <mutex>

int main()
{
    // Records arrive on the thread that made them, from whichever threads call the library.
    std::mutex mutex;
    QList<VLog::Record> records;
    const int sink = VLog::addSink([&](const VLog::Record& record) {
        const std::lock_guard<std::mutex> lock(mutex);
        records.append(record);
    });

    VImage image;
    image.create(64, 48, VEXA::GrayScale, VEXA::Channel8u, VEXA::OriginBottomLeft, VEXA::RowsAlignNone);
    VImage smooth;
    if (const VStatus status = VEXA::smoothGaussian(image, &smooth, 5); !status) {
        std::printf("unexpected failure: %s\n", qPrintable(status.reason()));
        return 1;
    }
    std::printf("8u blur: ok, %dx%d\n", smooth.width(), smooth.height());

    const VImage integers = image.convert(VEXA::GrayScale, VEXA::Channel32s);
    VImage result;
    const VStatus status = VEXA::smoothGaussian(integers, &result, 5);
    if (status) {
        std::printf("a 32s blur should have failed\n");
        return 1;
    }
    std::printf("32s blur: failed, issue %d\n  message: %s\n  reason:  %s\n", int(status.issue()),
                qPrintable(status.message()), qPrintable(status.reason()));

    VLog::removeSink(sink);
    std::printf("%d log record(s):\n", int(records.size()));
    for (const VLog::Record& r : records)
        std::printf("  %s %s in %s (%s:%d), issue %d: %s\n", r.level == VLog::Record::Error ? "error" : "warning",
                    qPrintable(r.module), qPrintable(r.function), qPrintable(r.file), r.line, int(r.issue),
                    qPrintable(r.text));
    return records.size() == 1 ? 0 : 1;
}
