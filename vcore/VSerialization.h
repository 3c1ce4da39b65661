// A serialization tree: elements with attributes, written and read through abstract interfaces, with an
// XML back end on QXmlStreamWriter and QXmlStreamReader.
//
// Values are written into the element the caller has opened, as two attributes: "type" and "value".
// double, QPointF and QRectF values are decimal numbers with 17 significant digits (exact round trips),
// joined by ';' (QRectF: x;y;width;height); bool is "true" or "false". A QVariant is written by the type it
// holds ("int", "double", "bool", "QString", "QPointF", "QRectF", or "list" with one child element
// "list_element" per item); any other type is refused. deserializeValue reads the element the reader is on,
// then steps past it onto the next start or end element; a value it cannot parse leaves the target as it
// was and the reader where it was.
#pragma once

#include <QByteArray>
#include <QList>
#include <QPointF>
#include <QRectF>
#include <QString>
#include <QVariant>
#include <QXmlStreamReader>
#include <QXmlStreamWriter>

#include <memory>

#include <vcore/vcore_export.h>

class QBuffer;
class QIODevice;

class VCORE_EXPORT VAbstractWriter {
public:
    virtual ~VAbstractWriter();
    // False, and the writer in error, for a tag that is not a valid element name.
    virtual bool beginElement(const QString& tag) = 0;
    // Attributes come straight after beginElement, before any child.
    virtual void writeAttribute(const QString& key, const QString& value) = 0;
    virtual void endElement() = 0;
    virtual bool hasError() const = 0;
};

class VCORE_EXPORT VAbstractReader {
public:
    virtual ~VAbstractReader();
    virtual bool isStartElement() const = 0;
    virtual bool isEndElement() const = 0;
    // True at the end of the document, and after a malformed one.
    virtual bool atEnd() const = 0;
    // Moves to the next start or end element.
    virtual void readNext() = 0;
    // From a start element to its matching end element.
    virtual void skipCurrentElement() = 0;
    virtual QString tag() const = 0;
    virtual bool hasAttribute(const QString& key) const = 0;
    virtual QString attribute(const QString& key) const = 0;
    virtual bool hasError() const = 0;
    virtual QString errorString() const = 0;
};

class VCORE_EXPORT VXmlWriter : public VAbstractWriter {
public:
    // Starts the document; the destructor (or finish) ends it.
    explicit VXmlWriter(QIODevice* device);
    explicit VXmlWriter(QByteArray* array);
    ~VXmlWriter() override;

    bool beginElement(const QString& tag) override;
    void writeAttribute(const QString& key, const QString& value) override;
    void endElement() override;
    bool hasError() const override;
    // Closes every open element and the document.
    void finish();

private:
    std::unique_ptr<QBuffer> buffer_;
    QXmlStreamWriter xml_;
    bool error_ = false;
    bool finished_ = false;
};

class VCORE_EXPORT VXmlReader : public VAbstractReader {
public:
    // Steps onto the root element.
    explicit VXmlReader(QIODevice* device);
    explicit VXmlReader(const QByteArray& data);
    ~VXmlReader() override;

    bool isStartElement() const override;
    bool isEndElement() const override;
    bool atEnd() const override;
    void readNext() override;
    void skipCurrentElement() override;
    QString tag() const override;
    bool hasAttribute(const QString& key) const override;
    QString attribute(const QString& key) const override;
    bool hasError() const override;
    QString errorString() const override;

private:
    QXmlStreamReader xml_;
};

// Keys shared by every class that writes itself into a tree: the class of an object, the name it was written
// under, and the element of one item of a list.
namespace VSerializationKeys {
inline constexpr QLatin1String className("className");
inline constexpr QLatin1String name("name");
inline constexpr QLatin1String listElement("list_element");
} // namespace VSerializationKeys

VCORE_EXPORT bool serialize(VAbstractWriter* writer, double value);
VCORE_EXPORT bool serialize(VAbstractWriter* writer, bool value);
VCORE_EXPORT bool serialize(VAbstractWriter* writer, const QPointF& value);
VCORE_EXPORT bool serialize(VAbstractWriter* writer, const QRectF& value);
VCORE_EXPORT bool serialize(VAbstractWriter* writer, const QVariant& value);

// A pointer has no value encoding: without this, any object pointer (to a class only declared where the call
// is made, to a const object, a string literal) would quietly be written as the bool "true". Classes that write
// themselves add overloads for their own pointer types, which are better matches than this one.
bool serialize(VAbstractWriter* writer, const void* value) = delete;

// Points as child elements of the element the caller has opened, one "list_element" each (with the
// attribute "name" = "list_element"), holding the point as a QPointF value.
VCORE_EXPORT bool serializePoints(VAbstractWriter* writer, const QList<QPointF>& points);

VCORE_EXPORT bool deserializeValue(VAbstractReader* reader, double* value);
VCORE_EXPORT bool deserializeValue(VAbstractReader* reader, bool* value);
VCORE_EXPORT bool deserializeValue(VAbstractReader* reader, QPointF* value);
VCORE_EXPORT bool deserializeValue(VAbstractReader* reader, QRectF* value);
VCORE_EXPORT bool deserializeValue(VAbstractReader* reader, QVariant* value);

// The points of the element the reader is on, written by serializePoints: children that are not a readable
// "list_element" point are skipped. On the element's end, *points is replaced and the reader steps past it;
// a document that ends first (or a reader not on a start element) leaves *points as it was.
VCORE_EXPORT bool deserializePoints(VAbstractReader* reader, QList<QPointF>* points);

// A new object of the class named className, owned by the caller, or null for a name the class family does not
// know; the caller then reads the object's content. Specialised by each family that is read this way.
template <class T>
T* deserializeNew(VAbstractReader* reader, const QString& className);

// <name type=".." value=".."/> as one child element.
template <class T>
bool serializeProperty(VAbstractWriter* writer, const QString& name, const T& value)
{
    if (!writer->beginElement(name))
        return false;
    const bool ok = serialize(writer, value);
    writer->endElement();
    return ok;
}
