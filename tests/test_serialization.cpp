// The serialization tree (XML back end) with its value functions, and images through it.
#include "support/LogCapture.h"
#include "support/images.h"

#include <vcore/VSerialization.h>

#include <QColor>

#include <gtest/gtest.h>

#include <cmath>

using namespace VEXA;

namespace {

// Writes properties under a root element and hands back a reader standing on the first of them.
template <class Write>
QByteArray document(Write write)
{
    QByteArray xml;
    {
        VXmlWriter writer(&xml);
        writer.beginElement("root");
        write(writer);
    }
    return xml;
}

TEST(Serialization, ValuesRoundTripExactly)
{
    const QVariantList list{1, 2.5, true, QString("a<b>&\"c\""), QPointF(1, 2), QRectF(0.1, 0.2, 3, 4), QVariantList{7}};
    const QByteArray xml = document([&](VXmlWriter& w) {
        EXPECT_TRUE(serializeProperty(&w, "d", 0.1 + 0.2));
        EXPECT_TRUE(serializeProperty(&w, "b", false));
        EXPECT_TRUE(serializeProperty(&w, "p", QPointF(-1e-300, 3e300)));
        EXPECT_TRUE(serializeProperty(&w, "r", QRectF(1.5, -2, 1.0 / 3, 7)));
        EXPECT_TRUE(serializeProperty(&w, "v", QVariant(list)));
        EXPECT_TRUE(serializeProperty(&w, "inf", std::numeric_limits<double>::infinity()));
    });
    VXmlReader reader(xml);
    ASSERT_TRUE(reader.isStartElement());
    EXPECT_EQ(reader.tag(), "root");
    reader.readNext();
    double d = 0, inf = 0;
    bool b = true;
    QPointF p;
    QRectF r;
    QVariant v;
    ASSERT_TRUE(deserializeValue(&reader, &d));
    ASSERT_TRUE(deserializeValue(&reader, &b));
    ASSERT_TRUE(deserializeValue(&reader, &p));
    ASSERT_TRUE(deserializeValue(&reader, &r));
    ASSERT_TRUE(deserializeValue(&reader, &v));
    ASSERT_TRUE(deserializeValue(&reader, &inf));
    EXPECT_EQ(d, 0.1 + 0.2);
    EXPECT_FALSE(b);
    EXPECT_EQ(p, QPointF(-1e-300, 3e300));
    EXPECT_EQ(r, QRectF(1.5, -2, 1.0 / 3, 7));
    EXPECT_EQ(v.toList(), list);
    EXPECT_EQ(v.toList()[0].typeId(), QMetaType::Int);
    EXPECT_TRUE(std::isinf(inf));
    EXPECT_TRUE(reader.isEndElement()) << "every value stepped past its element";
}

TEST(Serialization, RefusalsLeaveTargetAndReaderAlone)
{
    QByteArray xml;
    {
        VXmlWriter writer(&xml);
        writer.beginElement("root");
        EXPECT_FALSE(serializeProperty(&writer, "colour", QVariant(QColor(Qt::red)))) << "no such value type";
        EXPECT_FALSE(writer.beginElement("1 bad tag"));
        EXPECT_TRUE(writer.hasError());
    }
    const QByteArray good = document([](VXmlWriter& w) { serializeProperty(&w, "x", QPointF(1, 2)); });
    VXmlReader reader(good);
    reader.readNext();
    double d = 42;
    bool b = true;
    EXPECT_FALSE(deserializeValue(&reader, &d)) << "a QPointF is not a double";
    EXPECT_FALSE(deserializeValue(&reader, &b));
    EXPECT_EQ(d, 42);
    EXPECT_EQ(reader.tag(), "x");

    VXmlReader bad(QByteArray("<root><x type=\"double\" value=\"1,5\"/></root>"));
    bad.readNext();
    EXPECT_FALSE(deserializeValue(&bad, &d));
    VXmlReader malformed(QByteArray("<root><x type=\"double\" value=\"1\"></root>"));
    malformed.readNext();
    malformed.readNext();
    malformed.readNext();
    EXPECT_TRUE(malformed.atEnd());
    EXPECT_TRUE(malformed.hasError());
    EXPECT_FALSE(deserializeValue(&malformed, &d));
}

TEST(Serialization, ImagesAndHeadersRoundTrip)
{
    for (Format f : allFormats()) {
        VImage image = makeImage(5, 4, f, Channel(f), 11, OriginTopLeft, RowsAlign4);
        image.setRoi(QRect(1, 1, 2, 2));
        const QByteArray xml = document([&](VXmlWriter& w) {
            w.beginElement("image");
            EXPECT_TRUE(image.serialize(&w));
            w.endElement();
            w.beginElement("header");
            EXPECT_TRUE(image.header().serialize(&w));
            w.endElement();
        });
        VXmlReader reader(xml);
        reader.readNext();
        VImage back;
        ASSERT_TRUE(back.deserialize(&reader)) << f;
        EXPECT_EQ(back.header(), image.header());
        EXPECT_EQ(back.roi(), image.roi());
        EXPECT_EQ(back.hash(), image.hash());
        VImageHeader h;
        ASSERT_TRUE(h.deserialize(&reader));
        EXPECT_EQ(h, image.header());
    }
    VImage empty;
    const QByteArray xml = document([&](VXmlWriter& w) { w.beginElement("e"); empty.serialize(&w); w.endElement(); });
    VXmlReader reader(xml);
    reader.readNext();
    VImage back = makeImage(2, 2, BGR, Channel8u);
    EXPECT_TRUE(back.deserialize(&reader));
    EXPECT_TRUE(back.isEmpty());
}

TEST(Serialization, TamperedImagesAreRefused)
{
    const QString data = QString::fromLatin1(makeImage(3, 2, GrayScale, Channel8u).toByteArray().toBase64());
    const QString header = "<header type=\"VImageHeader\" width=\"3\" height=\"2\" format=\"0\" channelType=\"0\" origin=\"1\" rowsAlignment=\"0\"/>";
    const struct { const char* name; QString xml; bool ok; } cases[] = {
        {"good", "<i type=\"VImage\">" + header + "<data value=\"" + data + "\"/></i>", true},
        {"other header", "<i type=\"VImage\">" + QString(header).replace("width=\"3\"", "width=\"4\"") + "<data value=\"" + data + "\"/></i>", false},
        {"no data", "<i type=\"VImage\">" + header + "</i>", false},
        {"bad base64", "<i type=\"VImage\">" + header + "<data value=\"@@@@\"/></i>", false},
        {"cut data", "<i type=\"VImage\">" + header + "<data value=\"" + data.left(20) + "\"/></i>", false},
        {"header text", "<i type=\"VImage\">" + QString(header).replace("height=\"2\"", "height=\"two\"") + "<data value=\"" + data + "\"/></i>", false},
        {"not an image", "<i type=\"double\" value=\"1\"/>", false},
        {"truncated xml", "<i type=\"VImage\">" + header, false},
    };
    for (const auto& c : cases) {
        VXmlReader reader(c.xml.toUtf8());
        VImage image = makeImage(1, 1, XRGB, Channel8u);
        const VImage before = image;
        LogCapture log;
        EXPECT_EQ(image.deserialize(&reader), c.ok) << c.name;
        if (!c.ok) {
            EXPECT_TRUE(image.isEqual(before)) << c.name << ": a refused image changes nothing";
            EXPECT_GE(log.count(), 1u) << c.name;
        }
    }
}

} // namespace
