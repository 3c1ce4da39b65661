// The XML reader over any bytes, deserializing images, headers and values wherever it stands.
#include "fuzz_common.h"

#include <vcore/VSerialization.h>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    fuzzSetUp();
    VXmlReader reader(bytesOf(data, size));
    for (int steps = 0; steps < 256 && !reader.atEnd(); ++steps) {
        if (!reader.isStartElement()) {
            reader.readNext();
            continue;
        }
        const QString type = reader.attribute(QStringLiteral("type"));
        bool consumed = false;
        if (type == QLatin1String("VImage")) {
            VImage image;
            consumed = image.deserialize(&reader);
            if (consumed)
                (void)image.hash();
        } else if (type == QLatin1String("VImageHeader")) {
            VImageHeader header;
            consumed = header.deserialize(&reader);
        } else {
            QVariant value;
            consumed = deserializeValue(&reader, &value);
        }
        if (!consumed)
            reader.readNext();
    }
    return 0;
}
