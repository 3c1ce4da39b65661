<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="en_US">
<context>
    <name>QObject</name>
    <message>
        <source>Operation cancelled</source>
        <translation>Operation cancelled</translation>
    </message>
    <message>
        <source>Can&apos;t set data to the invalid image data</source>
        <translation>Can&apos;t set data to the invalid image data</translation>
    </message>
    <message>
        <source>Can&apos;t make header of invalid image.</source>
        <translation>Can&apos;t make header of invalid image.</translation>
    </message>
    <message>
        <source>Can&apos;t make hash of invalid image.</source>
        <translation>Can&apos;t make hash of invalid image.</translation>
    </message>
    <message>
        <source>Can&apos;t copy invalid image.</source>
        <translation>Can&apos;t copy invalid image.</translation>
    </message>
    <message>
        <source>Can&apos;t create compatible with invalid image.</source>
        <translation>Can&apos;t create compatible with invalid image.</translation>
    </message>
    <message>
        <source>Can&apos;t convert invalid image.</source>
        <translation>Can&apos;t convert invalid image.</translation>
    </message>
    <message>
        <source>Can&apos;t rotate invalid image.</source>
        <translation>Can&apos;t rotate invalid image.</translation>
    </message>
    <message>
        <source>Can&apos;t get pixel of invalid image.</source>
        <translation>Can&apos;t get pixel of invalid image.</translation>
    </message>
    <message>
        <source>Can&apos;t set pixel to the invalid image.</source>
        <translation>Can&apos;t set pixel to the invalid image.</translation>
    </message>
    <message>
        <source>Can&apos;t create histogram by invalid image.</source>
        <translation>Can&apos;t create histogram by invalid image.</translation>
    </message>
    <message>
        <source>Can&apos;t serialize invalid image.</source>
        <translation>Can&apos;t serialize invalid image.</translation>
    </message>
    <message>
        <source>Can&apos;t save invalid image.</source>
        <translation>Can&apos;t save invalid image.</translation>
    </message>
    <message>
        <source>Can&apos;t convert invalid VImage to QImage</source>
        <translation>Can&apos;t convert invalid VImage to QImage</translation>
    </message>
    <message>
        <source>Can&apos;t convert VImage to QImage.</source>
        <translation>Can&apos;t convert VImage to QImage.</translation>
    </message>
    <message>
        <source>Can&apos;t convert QImage to VImage.</source>
        <translation>Can&apos;t convert QImage to VImage.</translation>
    </message>
    <message>
        <source>Figure</source>
        <translation>Figure</translation>
    </message>
    <message>
        <source>Polyline</source>
        <translation>Polyline</translation>
    </message>
    <message>
        <source>RectBase</source>
        <translation>RectBase</translation>
    </message>
    <message>
        <source>Ellipse</source>
        <translation>Ellipse</translation>
    </message>
    <message>
        <source>Angle</source>
        <translation>Angle</translation>
    </message>
    <message>
        <source>Polygon</source>
        <translation>Polygon</translation>
    </message>
    <message>
        <source>Can&apos;t load cascade %1</source>
        <translation>Can&apos;t load cascade %1</translation>
    </message>
    <message>
        <source>Can&apos;t load cascade %1: no standard cascade of that name</source>
        <translation>Can&apos;t load cascade %1: no standard cascade of that name</translation>
    </message>
</context>
</TS>
