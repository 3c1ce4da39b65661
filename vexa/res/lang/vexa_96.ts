<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="ru_RU">
<context>
    <name>QObject</name>
    <message>
        <source>Operation cancelled</source>
        <translation>Операция отменена</translation>
    </message>
    <message>
        <source>Can&apos;t set data to the invalid image data</source>
        <translation>Невозможно записать данные в недопустимые данные изображения</translation>
    </message>
    <message>
        <source>Can&apos;t make header of invalid image.</source>
        <translation>Невозможно получить заголовок недопустимого изображения.</translation>
    </message>
    <message>
        <source>Can&apos;t make hash of invalid image.</source>
        <translation>Невозможно вычислить хеш недопустимого изображения.</translation>
    </message>
    <message>
        <source>Can&apos;t copy invalid image.</source>
        <translation>Невозможно скопировать недопустимое изображение.</translation>
    </message>
    <message>
        <source>Can&apos;t create compatible with invalid image.</source>
        <translation>Невозможно создать изображение, совместимое с недопустимым.</translation>
    </message>
    <message>
        <source>Can&apos;t convert invalid image.</source>
        <translation>Невозможно преобразовать недопустимое изображение.</translation>
    </message>
    <message>
        <source>Can&apos;t rotate invalid image.</source>
        <translation>Невозможно повернуть недопустимое изображение.</translation>
    </message>
    <message>
        <source>Can&apos;t get pixel of invalid image.</source>
        <translation>Невозможно получить пиксель недопустимого изображения.</translation>
    </message>
    <message>
        <source>Can&apos;t set pixel to the invalid image.</source>
        <translation>Невозможно задать пиксель недопустимого изображения.</translation>
    </message>
    <message>
        <source>Can&apos;t create histogram by invalid image.</source>
        <translation>Невозможно построить гистограмму недопустимого изображения.</translation>
    </message>
    <message>
        <source>Can&apos;t serialize invalid image.</source>
        <translation>Невозможно сериализовать недопустимое изображение.</translation>
    </message>
    <message>
        <source>Can&apos;t save invalid image.</source>
        <translation>Невозможно сохранить недопустимое изображение.</translation>
    </message>
    <message>
        <source>Can&apos;t convert invalid VImage to QImage</source>
        <translation>Невозможно преобразовать недопустимое изображение VImage в QImage</translation>
    </message>
    <message>
        <source>Can&apos;t convert VImage to QImage.</source>
        <translation>Невозможно преобразовать VImage в QImage.</translation>
    </message>
    <message>
        <source>Can&apos;t convert QImage to VImage.</source>
        <translation>Невозможно преобразовать QImage в VImage.</translation>
    </message>
    <message>
        <source>Figure</source>
        <translation>Фигура</translation>
    </message>
    <message>
        <source>Polyline</source>
        <translation>Ломаная</translation>
    </message>
    <message>
        <source>RectBase</source>
        <translation>Прямоугольник</translation>
    </message>
    <message>
        <source>Ellipse</source>
        <translation>Эллипс</translation>
    </message>
    <message>
        <source>Angle</source>
        <translation>Угол</translation>
    </message>
    <message>
        <source>Polygon</source>
        <translation>Многоугольник</translation>
    </message>
    <message>
        <source>Can&apos;t load cascade %1</source>
        <translation>Не удаётся загрузить каскад %1</translation>
    </message>
    <message>
        <source>Can&apos;t load cascade %1: no standard cascade of that name</source>
        <translation>Не удаётся загрузить каскад %1: стандартного каскада с таким именем нет</translation>
    </message>
</context>
</TS>
