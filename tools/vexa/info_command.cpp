// vexa info FILE...: what each image is and what its file says.
#include "cli.h"
#include "image_io.h"

#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTextStream>

namespace vexatool {

namespace {

QJsonObject describe(const QString& fileName)
{
    FileFacts facts;
    const VImage image = readImage(fileName, &facts);
    QJsonObject text;
    for (const auto& [key, value] : facts.text)
        text.insert(key, value);
    QJsonObject object{
        {QStringLiteral("file"), fileName},
        {QStringLiteral("width"), image.width()},
        {QStringLiteral("height"), image.height()},
        {QStringLiteral("format"), formatName(image.format())},
        {QStringLiteral("channel"), channelName(image.channelType())},
        {QStringLiteral("hash"), QString::fromLatin1(image.hash().toHex())},
        {QStringLiteral("bytes"), QFileInfo(fileName).size()},
        {QStringLiteral("file_format"), facts.fileFormat},
        {QStringLiteral("text"), text},
    };
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
        << "  hash        " << o[QStringLiteral("hash")].toString() << "\n"
        << "  file        " << o[QStringLiteral("bytes")].toInteger() << " bytes, "
        << o[QStringLiteral("file_format")].toString() << "\n";
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
        QStringLiteral("Prints each image's size, format, channel type and hash (the MD5 of its pixel block), "
                       "and what its file says: its size in bytes, the image file format as Qt detects it from "
                       "the contents (\"vexa\" for the library's byte arrays), its text keys and resolution. A "
                       "file that cannot be read is reported and the others still described."));
    parser.addPositionalArgument(QStringLiteral("files"), QStringLiteral("Image files or .vexa files."),
                                 QStringLiteral("FILE..."));
    const QCommandLineOption json(QStringLiteral("json"),
                                  QStringLiteral("Print a JSON array with one object per file read."));
    parser.addOption(json);
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
            described.append(describe(file));
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
