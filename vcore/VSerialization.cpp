#include <vcore/VSerialization.h>

#include <QBuffer>
#include <QRegularExpression>
#include <QStringList>

VAbstractWriter::~VAbstractWriter() = default;
VAbstractReader::~VAbstractReader() = default;

namespace {

bool isElementName(const QString& tag)
{
    static const QRegularExpression name(QStringLiteral("^[A-Za-z_][A-Za-z0-9._-]*$"));
    return name.match(tag).hasMatch();
}

QString number(double v) { return QString::number(v, 'g', 17); }

bool parseNumbers(const QString& text, int count, double* out)
{
    const QStringList parts = text.split(QLatin1Char(';'));
    if (parts.size() != count)
        return false;
    for (int i = 0; i < count; ++i) {
        bool ok = false;
        out[i] = parts[i].trimmed().toDouble(&ok);
        if (!ok)
            return false;
    }
    return true;
}

void writeTyped(VAbstractWriter* writer, const char* type, const QString& value)
{
    writer->writeAttribute(QStringLiteral("type"), QString::fromLatin1(type));
    writer->writeAttribute(QStringLiteral("value"), value);
}

// The value attribute of the current start element, if its type is the one expected.
bool typedValue(VAbstractReader* reader, const char* type, QString* value)
{
    if (!reader->isStartElement() || reader->attribute(QStringLiteral("type")) != QLatin1String(type))
        return false;
    *value = reader->attribute(QStringLiteral("value"));
    return true;
}

void stepPast(VAbstractReader* reader)
{
    reader->skipCurrentElement();
    reader->readNext();
}

} // namespace

VXmlWriter::VXmlWriter(QIODevice* device) : xml_(device)
{
    xml_.setAutoFormatting(true);
    xml_.writeStartDocument();
}

VXmlWriter::VXmlWriter(QByteArray* array) : buffer_(std::make_unique<QBuffer>(array))
{
    buffer_->open(QIODevice::WriteOnly);
    xml_.setDevice(buffer_.get());
    xml_.setAutoFormatting(true);
    xml_.writeStartDocument();
}

VXmlWriter::~VXmlWriter() { finish(); }

void VXmlWriter::finish()
{
    if (finished_)
        return;
    finished_ = true;
    xml_.writeEndDocument();
}

bool VXmlWriter::beginElement(const QString& tag)
{
    if (!isElementName(tag)) {
        error_ = true;
        return false;
    }
    xml_.writeStartElement(tag);
    return true;
}

void VXmlWriter::writeAttribute(const QString& key, const QString& value)
{
    if (!isElementName(key)) {
        error_ = true;
        return;
    }
    xml_.writeAttribute(key, value);
}

void VXmlWriter::endElement() { xml_.writeEndElement(); }

bool VXmlWriter::hasError() const { return error_ || xml_.hasError(); }

VXmlReader::VXmlReader(QIODevice* device) : xml_(device) { readNext(); }

VXmlReader::VXmlReader(const QByteArray& data) : xml_(data) { readNext(); }

VXmlReader::~VXmlReader() = default;

bool VXmlReader::isStartElement() const { return !xml_.hasError() && xml_.isStartElement(); }
bool VXmlReader::isEndElement() const { return !xml_.hasError() && xml_.isEndElement(); }
bool VXmlReader::atEnd() const { return xml_.atEnd() || xml_.hasError(); }

void VXmlReader::readNext()
{
    while (!atEnd()) {
        xml_.readNext();
        if (xml_.isStartElement() || xml_.isEndElement())
            return;
    }
}

void VXmlReader::skipCurrentElement()
{
    if (isStartElement())
        xml_.skipCurrentElement();
}

QString VXmlReader::tag() const { return xml_.name().toString(); }
bool VXmlReader::hasAttribute(const QString& key) const { return xml_.attributes().hasAttribute(key); }
QString VXmlReader::attribute(const QString& key) const { return xml_.attributes().value(key).toString(); }
bool VXmlReader::hasError() const { return xml_.hasError(); }
QString VXmlReader::errorString() const { return xml_.errorString(); }

bool serialize(VAbstractWriter* writer, double value)
{
    writeTyped(writer, "double", number(value));
    return !writer->hasError();
}

bool serialize(VAbstractWriter* writer, bool value)
{
    writeTyped(writer, "bool", value ? QStringLiteral("true") : QStringLiteral("false"));
    return !writer->hasError();
}

bool serialize(VAbstractWriter* writer, const QPointF& value)
{
    writeTyped(writer, "QPointF", number(value.x()) + QLatin1Char(';') + number(value.y()));
    return !writer->hasError();
}

bool serialize(VAbstractWriter* writer, const QRectF& value)
{
    writeTyped(writer, "QRectF", QStringList{number(value.x()), number(value.y()), number(value.width()),
                                             number(value.height())}.join(QLatin1Char(';')));
    return !writer->hasError();
}

bool serialize(VAbstractWriter* writer, const QVariant& value)
{
    switch (value.typeId()) {
    case QMetaType::Double: return serialize(writer, value.toDouble());
    case QMetaType::Bool: return serialize(writer, value.toBool());
    case QMetaType::QPointF: return serialize(writer, value.toPointF());
    case QMetaType::QRectF: return serialize(writer, value.toRectF());
    case QMetaType::Int: writeTyped(writer, "int", QString::number(value.toInt())); return !writer->hasError();
    case QMetaType::QString: writeTyped(writer, "QString", value.toString()); return !writer->hasError();
    case QMetaType::QVariantList: {
        writer->writeAttribute(QStringLiteral("type"), QStringLiteral("list"));
        bool ok = true;
        for (const QVariant& item : value.toList())
            ok = serializeProperty(writer, QStringLiteral("list_element"), item) && ok;
        return ok && !writer->hasError();
    }
    default: return false;
    }
}

bool serializePoints(VAbstractWriter* writer, const QList<QPointF>& points)
{
    bool ok = true;
    for (const QPointF& point : points) {
        if (!writer->beginElement(VSerializationKeys::listElement))
            return false;
        writer->writeAttribute(VSerializationKeys::name, VSerializationKeys::listElement);
        ok = serialize(writer, point) && ok;
        writer->endElement();
    }
    return ok && !writer->hasError();
}

namespace {

// The N numbers of a value of the given type, handed to make; the element is stepped past on success.
template <int N, class T, class Make>
bool readNumbers(VAbstractReader* reader, const char* type, T* value, Make make)
{
    QString text;
    double v[N];
    if (!typedValue(reader, type, &text) || !parseNumbers(text, N, v))
        return false;
    *value = make(v);
    stepPast(reader);
    return true;
}

} // namespace

bool deserializeValue(VAbstractReader* reader, double* value)
{
    return readNumbers<1>(reader, "double", value, [](const double* v) { return v[0]; });
}

bool deserializeValue(VAbstractReader* reader, bool* value)
{
    QString text;
    if (!typedValue(reader, "bool", &text) || (text != QLatin1String("true") && text != QLatin1String("false")))
        return false;
    *value = text == QLatin1String("true");
    stepPast(reader);
    return true;
}

bool deserializeValue(VAbstractReader* reader, QPointF* value)
{
    return readNumbers<2>(reader, "QPointF", value, [](const double* v) { return QPointF(v[0], v[1]); });
}

bool deserializeValue(VAbstractReader* reader, QRectF* value)
{
    return readNumbers<4>(reader, "QRectF", value, [](const double* v) { return QRectF(v[0], v[1], v[2], v[3]); });
}

bool deserializeValue(VAbstractReader* reader, QVariant* value)
{
    if (!reader->isStartElement())
        return false;
    const QString type = reader->attribute(QStringLiteral("type"));
    // A typed value read by its own reader, then held by the variant.
    const auto readAs = [reader, value](auto typed) {
        return deserializeValue(reader, &typed) && (*value = QVariant::fromValue(typed), true);
    };
    if (type == QLatin1String("double"))
        return readAs(0.0);
    if (type == QLatin1String("bool"))
        return readAs(false);
    if (type == QLatin1String("QPointF"))
        return readAs(QPointF());
    if (type == QLatin1String("QRectF"))
        return readAs(QRectF());
    if (type == QLatin1String("int")) {
        bool ok = false;
        const int v = reader->attribute(QStringLiteral("value")).toInt(&ok);
        if (!ok)
            return false;
        *value = v;
        stepPast(reader);
        return true;
    }
    if (type == QLatin1String("QString")) {
        *value = reader->attribute(QStringLiteral("value"));
        stepPast(reader);
        return true;
    }
    if (type == QLatin1String("list")) {
        QVariantList items;
        reader->readNext(); // onto the first item, or the list's own end
        while (reader->isStartElement()) {
            QVariant item;
            if (reader->tag() != QLatin1String("list_element") || !deserializeValue(reader, &item))
                return false;
            items.append(item);
        }
        if (!reader->isEndElement())
            return false;
        reader->readNext(); // past the list's end
        *value = items;
        return true;
    }
    return false;
}

bool deserializePoints(VAbstractReader* reader, QList<QPointF>* points)
{
    if (!reader->isStartElement())
        return false;
    QList<QPointF> read;
    reader->readNext(); // onto the first point, or the element's own end
    while (reader->isStartElement()) {
        QPointF point;
        // A point read steps past its element; anything else is passed over whole.
        if (reader->tag() == VSerializationKeys::listElement && deserializeValue(reader, &point))
            read.append(point);
        else
            stepPast(reader);
    }
    if (!reader->isEndElement())
        return false;
    reader->readNext(); // past the element's end
    *points = read;
    return true;
}
