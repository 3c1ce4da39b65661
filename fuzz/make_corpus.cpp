// Writes the seed corpus of every fuzz target: make_corpus DIRECTORY (one subdirectory per target).
#include <vexa/Vexa.h>

#include <vcore/VSerialization.h>

#include <QDataStream>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <cstdio>
#include <random>

using namespace VEXA;

namespace {

VImage sample(int w, int h, Format f, Channel c, unsigned seed)
{
    VImage image;
    image.create(w, h, f, c, OriginBottomLeft, RowsAlignNone);
    std::mt19937 random(seed);
    for (long i = 0; i < image.dataSize(); ++i)
        image.rawData()[i] = static_cast<unsigned char>(random() % 200);
    image.resetHash();
    return image;
}

bool write(const QDir& dir, const QString& name, const QByteArray& bytes)
{
    QFile file(dir.filePath(name));
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(bytes) == bytes.size();
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s DIRECTORY\n", argv[0]);
        return 2;
    }
    const QDir root(QString::fromLocal8Bit(argv[1]));
    for (const char* target :
         {"fuzz_byte_array", "fuzz_data_stream", "fuzz_load", "fuzz_xml", "fuzz_operations", "fuzz_figures"})
        root.mkpath(QString::fromLatin1(target));
    bool ok = true;

    VImage withRoi = sample(6, 5, XRGB, Channel32f, 3);
    withRoi.setRoi(QRect(1, 1, 3, 2));
    const VImage samples[] = {VImage(), sample(3, 2, BGR, Channel8u, 1), sample(5, 4, GrayScale, Channel16u, 2), withRoi,
                              sample(4, 2, YUV422, Channel8u, 4), sample(2, 2, ARGB_Premultiplied, Channel8s, 5)};
    const QDir arrays(root.filePath("fuzz_byte_array"));
    int n = 0;
    for (const VImage& image : samples)
        for (CompressionLevel level : {CompressionNone, CompressionBest})
            ok &= write(arrays, QStringLiteral("image%1").arg(n++), image.toByteArray(level));

    QByteArray stream;
    {
        QDataStream out(&stream, QIODevice::WriteOnly);
        out << samples[1] << samples[0] << samples[2];
    }
    ok &= write(QDir(root.filePath("fuzz_data_stream")), QStringLiteral("three_images"), stream);

    QTemporaryDir temp;
    const QDir files(root.filePath("fuzz_load"));
    const struct { const char* name; VImage image; } pictures[] = {
        {"gray.png", sample(8, 6, GrayScale, Channel8u, 6)}, {"colour.png", sample(8, 6, ARGB, Channel8u, 7)},
        {"colour.bmp", sample(8, 6, BGR, Channel8u, 8)}, {"colour.jpg", sample(8, 6, XRGB, Channel8u, 9)},
        {"gray.pgm", sample(8, 6, GrayScale, Channel8u, 10)}, {"colour.ppm", sample(8, 6, XRGB, Channel8u, 11)},
    };
    for (const auto& p : pictures) {
        const QString path = temp.filePath(QString::fromLatin1(p.name));
        QFile file(path);
        ok &= p.image.save(path) && file.open(QIODevice::ReadOnly) && write(files, QString::fromLatin1(p.name), file.readAll());
    }
    // 16-bit colour, which readImageFile keeps.
    for (const char* name : {"colour16.png", "colour16.tif", "alpha16.png"}) {
        const QString path = temp.filePath(QString::fromLatin1(name));
        QFile file(path);
        const VImage image = sample(8, 6, name[0] == 'a' ? ARGB : XRGB, Channel16u, 12);
        ok &= bool(writeImageFile(image, path)) && file.open(QIODevice::ReadOnly) &&
              write(files, QString::fromLatin1(name), file.readAll());
    }

    QByteArray xml;
    {
        VXmlWriter writer(&xml);
        writer.beginElement(QStringLiteral("document"));
        writer.beginElement(QStringLiteral("image"));
        samples[1].serialize(&writer);
        writer.endElement();
        writer.beginElement(QStringLiteral("header"));
        samples[2].header().serialize(&writer);
        writer.endElement();
        serializeProperty(&writer, QStringLiteral("values"), QVariant(QVariantList{1, 2.5, true, QPointF(1, 2), QRectF(0, 0, 3, 4)}));
    }
    ok &= write(QDir(root.filePath("fuzz_xml")), QStringLiteral("document.xml"), xml);

    // Every figure class in one document, and each alone as the root.
    VPolyPoint polyline(QPolygonF({{1, 2}, {30.5, 4}, {12, 40}, {-3, 7.25}}));
    VPolygon polygon(QPolygonF({{0, 0}, {10, 0}, {10, 8}, {5, 12}, {0, 8}, {0, 0}}));
    VRectBase rect(4, 5, 20, 10, 30);
    rect.setTransformPos(QPointF(2, 3));
    VEllipse ellipse(QRectF(-5, -5, 10, 6), 15, 0, 90);
    VAngle angle(QPointF(1, 1), QPointF(5, 1), QPointF(1, 5));
    VFigure* const figures[] = {&polyline, &polygon, &rect, &ellipse, &angle};
    const QDir figureDir(root.filePath("fuzz_figures"));
    QByteArray all;
    {
        VXmlWriter writer(&all);
        writer.beginElement(QStringLiteral("document"));
        for (VFigure* figure : figures)
            ok &= figure->writeStreamThis(&writer, figure->typeString().toLower());
    }
    ok &= write(figureDir, QStringLiteral("figures.xml"), all);
    for (VFigure* figure : figures) {
        QByteArray one;
        {
            VXmlWriter writer(&one);
            ok &= figure->writeStreamThis(&writer, QStringLiteral("figure"));
        }
        ok &= write(figureDir, figure->typeString() + QStringLiteral(".xml"), one);
    }

    std::mt19937 random(12);
    for (int i = 0; i < 4; ++i) {
        QByteArray bytes;
        for (int k = 0; k < 300 + 200 * i; ++k)
            bytes += char(random());
        ok &= write(QDir(root.filePath("fuzz_operations")), QStringLiteral("sequence%1").arg(i), bytes);
    }
    if (!ok)
        std::fprintf(stderr, "could not write the whole corpus\n");
    return ok ? 0 : 1;
}
