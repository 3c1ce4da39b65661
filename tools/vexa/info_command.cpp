// vexa info FILE...: what each image is and what its file says.
#include "cli.h"
#include "image_io.h"

#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTextStream>

#include <vexa/imp/raw_files.h>

#include <opencv2/core.hpp>

namespace vexatool {

namespace {

QJsonObject describe(const QString& fileName, bool hash, bool stats)
{
    FileFacts facts;
    VImage image; // the pixels, read only when asked for
    ImageShape shape;
    if (hash || stats) {
        image = readImage(fileName, &facts);
        shape = ImageShape{image.size(), image.format(), image.channelType()};
    } else {
        // Raw files are told by LibRaw's reading of their header; Qt's would give a preview's, or nothing.
        if (VEXA::isRawFile(fileName))
            facts.fileFormat = QStringLiteral("raw");
        else if (!isByteArrayFile(fileName))
            facts = readFacts(fileName, &shape.size);
        else
            facts.fileFormat = QStringLiteral("vexa");
        if (!peekImage(fileName, &shape))
            readImage(fileName); // which says what is wrong with the file
    }
    QJsonObject text;
    for (const auto& [key, value] : facts.text)
        text.insert(key, value);
    QJsonObject object{
        {QStringLiteral("file"), fileName},
        {QStringLiteral("width"), shape.size.width()},
        {QStringLiteral("height"), shape.size.height()},
        {QStringLiteral("format"), formatName(shape.format)},
        {QStringLiteral("channel"), channelName(shape.channel)},
        {QStringLiteral("bytes"), QFileInfo(fileName).size()},
        {QStringLiteral("file_format"), facts.fileFormat},
        {QStringLiteral("text"), text},
    };
    if (hash)
        object.insert(QStringLiteral("hash"), QString::fromLatin1(image.hash().toHex()));
    if (stats) {
        // Per component, in the image's order (blue first), alpha and the X byte included.
        const cv::Mat pixels = view(image);
        std::vector<cv::Mat> planes;
        cv::split(pixels, planes);
        QJsonArray components;
        for (const cv::Mat& plane : planes) {
            double low = 0, high = 0;
            cv::minMaxLoc(plane, &low, &high);
            cv::Scalar mean, deviation;
            cv::meanStdDev(plane, mean, deviation);
            components.append(QJsonObject{{QStringLiteral("min"), low},
                                          {QStringLiteral("max"), high},
                                          {QStringLiteral("mean"), mean[0]},
                                          {QStringLiteral("stddev"), deviation[0]}});
        }
        object.insert(QStringLiteral("stats"), components);
    }
    if (facts.dotsPerMetre.isValid())
        object.insert(QStringLiteral("dots_per_metre"),
                      QJsonArray{facts.dotsPerMetre.width(), facts.dotsPerMetre.height()});
    return object;
}

void print(QTextStream& out, const QJsonObject& o)
{
    out << o[QStringLiteral("file")].toString() << "\n"
        << "  image       " << o[QStringLiteral("width")].toInt() << "x" << o[QStringLiteral("height")].toInt() << ", "
        << o[QStringLiteral("format")].toString() << " " << o[QStringLiteral("channel")].toString() << "\n"
        << "  file        " << o[QStringLiteral("bytes")].toInteger() << " bytes, "
        << o[QStringLiteral("file_format")].toString() << "\n";
    if (o.contains(QStringLiteral("hash")))
        out << "  hash        " << o[QStringLiteral("hash")].toString() << "\n";
    const QJsonArray stats = o[QStringLiteral("stats")].toArray();
    for (int i = 0; i < stats.size(); ++i) {
        const QJsonObject c = stats[i].toObject();
        out << "  component " << i << " min " << c[QStringLiteral("min")].toDouble() << ", max "
            << c[QStringLiteral("max")].toDouble() << ", mean " << c[QStringLiteral("mean")].toDouble()
            << ", stddev " << c[QStringLiteral("stddev")].toDouble() << "\n";
    }
    const QJsonArray dpm = o[QStringLiteral("dots_per_metre")].toArray();
    if (dpm.size() == 2)
        out << "  resolution  " << dpm[0].toInt() << "x" << dpm[1].toInt() << " dots per metre\n";
    const QJsonObject text = o[QStringLiteral("text")].toObject();
    for (auto it = text.begin(); it != text.end(); ++it)
        out << "  text        " << it.key() << ": " << it.value().toString().simplified() << "\n";
}

} // namespace

int infoCommand(const QStringList& arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Prints each image's size, format and channel type (as the other commands read it), "
                       "and what its file says: its size in bytes, the image file format as Qt detects it from "
                       "the contents (\"vexa\" for the library's byte arrays), its text keys and resolution. "
                       "Image files are described from their headers alone, whatever their size; --hash and "
                       "--stats read the pixels. A file that cannot be read is reported and the others still "
                       "described."));
    parser.addPositionalArgument(QStringLiteral("files"), QStringLiteral("Image files or .vexa files."),
                                 QStringLiteral("FILE..."));
    const QCommandLineOption json(QStringLiteral("json"),
                                  QStringLiteral("Print a JSON array with one object per file read."));
    const QCommandLineOption hash(QStringLiteral("hash"),
                                  QStringLiteral("Also the MD5 of the image's pixel block, as the library hashes it."));
    const QCommandLineOption stats(QStringLiteral("stats"),
                                   QStringLiteral("Also each component's minimum, maximum, mean and standard "
                                                  "deviation, blue first, alpha and the X byte included."));
    parser.addOptions({json, hash, stats});
    if (!parseCommandLine(parser, QStringLiteral("info"), arguments))
        return ExitOk;
    const QStringList files = parser.positionalArguments();
    if (files.isEmpty())
        usageError(QStringLiteral("no files given"));

    Task task;
    QJsonArray described;
    bool failed = false;
    for (const QString& file : files) {
        task.step(QStringLiteral("reading ") + file);
        try {
            described.append(describe(file, parser.isSet(hash), parser.isSet(stats)));
        } catch (const Failure& failure) {
            printError(failure.message);
            failed = true;
        }
    }
    endProgress();
    QTextStream out(stdout);
    if (parser.isSet(json))
        out << QJsonDocument(described).toJson(QJsonDocument::Indented);
    else
        for (const QJsonValue& value : described)
            print(out, value.toObject());
    return failed ? ExitRuntimeError : ExitOk;
}

} // namespace vexatool
