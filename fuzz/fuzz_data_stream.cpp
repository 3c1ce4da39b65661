// Images read one after another from a QDataStream over any bytes.
#include "fuzz_common.h"

#include <QDataStream>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    fuzzSetUp();
    const QByteArray bytes = bytesOf(data, size);
    QDataStream stream(bytes);
    for (int i = 0; i < 16 && stream.status() == QDataStream::Ok && !stream.atEnd(); ++i) {
        VImage image;
        stream >> image;
        if (image.status() && !image.isEmpty())
            (void)image.hash();
    }
    return 0;
}
