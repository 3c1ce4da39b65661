/// @file
/// @brief Serialization trees and their XML back end (group @ref serialization).
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

/// @addtogroup serialization
/// A serialization tree: elements with attributes, written and read through abstract interfaces
/// (VAbstractWriter, VAbstractReader), with an XML back end on QXmlStreamWriter and QXmlStreamReader
/// (VXmlWriter, VXmlReader).
///
/// **Values** are written into the element the caller has opened, as two attributes: "type" and "value".
/// double, QPointF and QRectF values are decimal numbers with 17 significant digits (exact round trips),
/// joined by ';' (QRectF: x;y;width;height); bool is "true" or "false". A QVariant is written by the type it
/// holds ("int", "double", "bool", "QString", "QPointF", "QRectF", or "list" with one child element
/// "list_element" per item); any other type is refused. serializeProperty() opens the element itself.
///
/// **Reading:** deserializeValue() reads the element the reader is on, then steps past it onto the next start
/// or end element. A value it cannot parse leaves the target as it was and, for every type but a "list"
/// QVariant, the reader where it was; a list whose items cannot all be read leaves the reader inside it.
///
/// **Threads:** the functions are reentrant; a writer or reader belongs to one thread at a time.
/// @{

/// Where a tree is written: elements opened and closed in order, each with its attributes straight after
/// it is opened. Implemented by VXmlWriter.
class VCORE_EXPORT VAbstractWriter {
public:
    /// Destroys the writer.
    virtual ~VAbstractWriter();
    /// Opens a child element of the element open now (the root, when none is). False, and the writer in
    /// error, for a tag that is not a valid element name.
    virtual bool beginElement(const QString& tag) = 0;
    /// Gives the element opened last an attribute. Attributes come straight after beginElement, before any
    /// child.
    virtual void writeAttribute(const QString& key, const QString& value) = 0;
    /// Closes the element opened last.
    virtual void endElement() = 0;
    /// Whether anything went wrong so far: a refused name, or the back end's own failure.
    virtual bool hasError() const = 0;
};

/// Where a tree is read from: a cursor that stands on one start or end element at a time. Implemented by
/// VXmlReader.
class VCORE_EXPORT VAbstractReader {
public:
    /// Destroys the reader.
    virtual ~VAbstractReader();
    /// Whether the reader stands on a start element.
    virtual bool isStartElement() const = 0;
    /// Whether the reader stands on an end element.
    virtual bool isEndElement() const = 0;
    /// True at the end of the document, and after a malformed one.
    virtual bool atEnd() const = 0;
    /// Moves to the next start or end element.
    virtual void readNext() = 0;
    /// From a start element to its matching end element.
    virtual void skipCurrentElement() = 0;
    /// The name of the element the reader stands on.
    virtual QString tag() const = 0;
    /// Whether the start element the reader stands on has the attribute @p key.
    virtual bool hasAttribute(const QString& key) const = 0;
    /// The value of the attribute @p key of the start element the reader stands on; empty when it has none.
    virtual QString attribute(const QString& key) const = 0;
    /// Whether the document was found malformed.
    virtual bool hasError() const = 0;
    /// What was wrong with the document; empty when nothing was.
    virtual QString errorString() const = 0;
};

/// A tree written as an XML document (UTF-8, indented, with an XML declaration). Element and attribute names
/// must match `[A-Za-z_][A-Za-z0-9._-]*`; any other is refused and puts the writer in error. Not copyable; the
/// device or array written to must outlive it.
class VCORE_EXPORT VXmlWriter : public VAbstractWriter {
public:
    /// Starts the document on @p device, which must be open for writing; the destructor (or finish) ends it.
    explicit VXmlWriter(QIODevice* device);
    /// Starts the document in @p array, written from its first byte (give an empty array); the destructor
    /// (or finish) ends it.
    explicit VXmlWriter(QByteArray* array);
    /// Ends the document, as finish() does, unless finish() was called.
    ~VXmlWriter() override;

    /// Opens a child element; false, writing nothing and putting the writer in error, for a refused name.
    bool beginElement(const QString& tag) override;
    /// Gives the element opened last an attribute; a refused @p key writes nothing and puts the writer in
    /// error.
    void writeAttribute(const QString& key, const QString& value) override;
    /// Closes the element opened last.
    void endElement() override;
    /// Whether a name was refused or writing to the device failed.
    bool hasError() const override;
    /// Closes every open element and the document. Later calls do nothing; nothing may be written after it.
    void finish();

private:
    std::unique_ptr<QBuffer> buffer_;
    QXmlStreamWriter xml_;
    bool error_ = false;
    bool finished_ = false;
};

/// A tree read from an XML document. It stands only on start and end elements: text, comments and
/// processing instructions are passed over. A malformed document puts it in error, where it stands on
/// nothing and atEnd() is true. Not copyable.
class VCORE_EXPORT VXmlReader : public VAbstractReader {
public:
    /// Reads from @p device, which must be open for reading and outlive the reader. Steps onto the root
    /// element.
    explicit VXmlReader(QIODevice* device);
    /// Reads from a copy of @p data. Steps onto the root element.
    explicit VXmlReader(const QByteArray& data);
    /// Destroys the reader; the device stays open.
    ~VXmlReader() override;

    /// Whether the reader stands on a start element (false once in error).
    bool isStartElement() const override;
    /// Whether the reader stands on an end element (false once in error).
    bool isEndElement() const override;
    /// True at the end of the document, and after a malformed one.
    bool atEnd() const override;
    /// Moves to the next start or end element; does nothing at the end.
    void readNext() override;
    /// From a start element to its matching end element; does nothing elsewhere.
    void skipCurrentElement() override;
    /// The element's name, without a namespace prefix.
    QString tag() const override;
    /// Whether the start element has the attribute @p key.
    bool hasAttribute(const QString& key) const override;
    /// The attribute @p key of the start element; empty when it has none.
    QString attribute(const QString& key) const override;
    /// Whether the document was found malformed (or cut off).
    bool hasError() const override;
    /// QXmlStreamReader's account of what was wrong; empty when nothing was.
    QString errorString() const override;

private:
    QXmlStreamReader xml_;
};

/// Keys shared by every class that writes itself into a tree: the class of an object, the name it was written
/// under, and the element of one item of a list.
namespace VSerializationKeys {
/// The attribute naming the class of an object written ("className").
inline constexpr QLatin1String className("className");
/// The attribute naming the name an object was written under ("name").
inline constexpr QLatin1String name("name");
/// The element of one item of a list ("list_element").
inline constexpr QLatin1String listElement("list_element");
} // namespace VSerializationKeys

/// Writes @p value into the element the caller has opened: type="double" and the value with 17 significant
/// digits. True unless the writer is in error (from this write or an earlier one).
VCORE_EXPORT bool serialize(VAbstractWriter* writer, double value);
/// As serialize(VAbstractWriter*, double), with type="bool" and the value "true" or "false".
VCORE_EXPORT bool serialize(VAbstractWriter* writer, bool value);
/// As serialize(VAbstractWriter*, double), with type="QPointF" and the value "x;y".
VCORE_EXPORT bool serialize(VAbstractWriter* writer, const QPointF& value);
/// As serialize(VAbstractWriter*, double), with type="QRectF" and the value "x;y;width;height".
VCORE_EXPORT bool serialize(VAbstractWriter* writer, const QRectF& value);
/// Writes the value @p value holds, by its type: double, bool, QPointF and QRectF as above, int as type="int"
/// in decimal, QString as type="QString" with the text as the value, and a QVariantList as type="list" (no
/// value attribute) with one child "list_element" per item, each written the same way. Any other type is
/// refused: false, nothing written (inside a list, the item's element is still written, empty, and the rest
/// of the list follows). Otherwise true unless the writer is in error.
VCORE_EXPORT bool serialize(VAbstractWriter* writer, const QVariant& value);

/// A pointer has no value encoding: without this, any object pointer (to a class only declared where the call
/// is made, to a const object, a string literal) would quietly be written as the bool "true". Classes that write
/// themselves add overloads for their own pointer types, which are better matches than this one.
bool serialize(VAbstractWriter* writer, const void* value) = delete;

/// Points as child elements of the element the caller has opened, one "list_element" each (with the
/// attribute "name" = "list_element"), holding the point as a QPointF value. True unless the writer is in
/// error.
VCORE_EXPORT bool serializePoints(VAbstractWriter* writer, const QList<QPointF>& points);

/// Reads the start element the reader is on as a type="double" value into @p value, then steps past the
/// element. False, leaving @p value and the reader as they were, when the reader is not on a start element,
/// the type differs or the value is not a number.
VCORE_EXPORT bool deserializeValue(VAbstractReader* reader, double* value);
/// As deserializeValue(VAbstractReader*, double*), for type="bool" with the value exactly "true" or "false".
VCORE_EXPORT bool deserializeValue(VAbstractReader* reader, bool* value);
/// As deserializeValue(VAbstractReader*, double*), for type="QPointF" with two numbers joined by ';'.
VCORE_EXPORT bool deserializeValue(VAbstractReader* reader, QPointF* value);
/// As deserializeValue(VAbstractReader*, double*), for type="QRectF" with four numbers joined by ';'.
VCORE_EXPORT bool deserializeValue(VAbstractReader* reader, QRectF* value);
/// Reads any value serialize(VAbstractWriter*, const QVariant&) writes, by its type attribute, into
/// @p value: a double, bool, QPointF, QRectF, int or QString, or a QVariantList whose children must all be
/// readable "list_element" values. False for another type or a value that does not parse, leaving @p value
/// as it was; the reader then stays where it was, except in a list, where it stays on the item that failed
/// (or wherever the document ended).
VCORE_EXPORT bool deserializeValue(VAbstractReader* reader, QVariant* value);

/// The points of the element the reader is on, written by serializePoints: children that are not a readable
/// "list_element" point are skipped. On the element's end, *points is replaced and the reader steps past it;
/// a document that ends first (or a reader not on a start element) leaves *points as it was, and returns
/// false.
VCORE_EXPORT bool deserializePoints(VAbstractReader* reader, QList<QPointF>* points);

/// A new object of the class named className, owned by the caller, or null for a name the class family does not
/// know; the caller then reads the object's content. Specialised by each family that is read this way
/// (deserializeNew<VFigure>, say); for any other T there is no definition and a call does not link.
template <class T>
T* deserializeNew(VAbstractReader* reader, const QString& className);

/// `<name type=".." value=".."/>` as one child element: opens the element @p name, writes @p value into it
/// with the serialize() overload for T, and closes it. False when @p name is refused (nothing written) or
/// the value is (the element is still closed).
template <class T>
bool serializeProperty(VAbstractWriter* writer, const QString& name, const T& value)
{
    if (!writer->beginElement(name))
        return false;
    const bool ok = serialize(writer, value);
    writer->endElement();
    return ok;
}

/// @}
