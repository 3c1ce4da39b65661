<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="ru_RU">
<context>
    <name>QObject</name>
    <message>
        <source>the library gave no reason</source>
        <translation>библиотека не назвала причину</translation>
    </message>
    <message>
        <source>The first shot&apos;s metadata could not be kept: %1</source>
        <translation>Метаданные первого снимка сохранить не удалось: %1</translation>
    </message>
</context>
<context>
    <name>studio::BatchDialog</name>
    <message>
        <source>Batch stacking</source>
        <translation>Пакетное объединение</translation>
    </message>
    <message>
        <source>Folder</source>
        <translation>Папка</translation>
    </message>
    <message>
        <source>State</source>
        <translation>Состояние</translation>
    </message>
    <message>
        <source>&amp;Add folders...</source>
        <translation>&amp;Добавить папки...</translation>
    </message>
    <message>
        <source>Add a folder of shots</source>
        <translation>Добавить папку со снимками</translation>
    </message>
    <message>
        <source>&amp;Remove</source>
        <translation>&amp;Убрать</translation>
    </message>
    <message>
        <source>beside each folder</source>
        <translation>рядом с каждой папкой</translation>
    </message>
    <message>
        <source>Choose...</source>
        <translation>Выбрать...</translation>
    </message>
    <message>
        <source>Save the results in</source>
        <translation>Сохранять результаты в</translation>
    </message>
    <message>
        <source>Save results:</source>
        <translation>Сохранять результаты:</translation>
    </message>
    <message>
        <source>PNG (16 bits where the result has them)</source>
        <translation>PNG (16 бит, если они есть в результате)</translation>
    </message>
    <message>
        <source>TIFF (16 bits where the result has them)</source>
        <translation>TIFF (16 бит, если они есть в результате)</translation>
    </message>
    <message>
        <source>JPEG</source>
        <translation>JPEG</translation>
    </message>
    <message>
        <source>Format:</source>
        <translation>Формат:</translation>
    </message>
    <message>
        <source>&amp;Start</source>
        <translation>&amp;Начать</translation>
    </message>
    <message>
        <source>Cancel</source>
        <translation>Отмена</translation>
    </message>
    <message>
        <source>%1% %2</source>
        <translation>%1% %2</translation>
    </message>
    <message>
        <source>waiting</source>
        <translation>ожидает</translation>
    </message>
    <message>
        <source>needs two shots or more, has %1</source>
        <translation>нужно не меньше двух снимков, а их %1</translation>
    </message>
    <message numerus="yes">
        <source>%n shot(s), starting...</source>
        <translation>
            <numerusform>%n снимок, начало...</numerusform>
            <numerusform>%n снимка, начало...</numerusform>
            <numerusform>%n снимков, начало...</numerusform>
        </translation>
    </message>
    <message>
        <source>cancelled: Start goes on from here</source>
        <translation>отменено: «Начать» продолжит отсюда</translation>
    </message>
    <message>
        <source>saved as %1</source>
        <translation>сохранено как %1</translation>
    </message>
    <message>
        <source>saved as %1 (%2)</source>
        <translation>сохранено как %1 (%2)</translation>
    </message>
</context>
<context>
    <name>studio::Help</name>
    <message>
        <source>Vexa Studio guide</source>
        <translation>Руководство Vexa Studio</translation>
    </message>
    <message>
        <source>&lt;h3&gt;Focus stacking in five steps&lt;/h3&gt;&lt;ol&gt;&lt;li&gt;&lt;b&gt;Open the shots&lt;/b&gt; (File &amp;gt; Open shots or Open folder, or drop files or a folder on the window). They are listed in the order of their names: near focus first is usual.&lt;/li&gt;&lt;li&gt;&lt;b&gt;Manage the stack.&lt;/b&gt; Clear a shot&apos;s box to leave it out; move shots earlier or later; &lt;i&gt;Make it the reference&lt;/i&gt; moves a shot to the front, and the others are aligned and exposed to it. Shots that are only added after the last stack are merged onto it without starting again.&lt;/li&gt;&lt;li&gt;&lt;b&gt;Stack.&lt;/b&gt; &lt;i&gt;Depth map&lt;/i&gt; is made for real, hand-held series: it matches exposure and white balance, follows focus breathing, shake and parallax with &lt;i&gt;Automatic&lt;/i&gt; alignment, and keeps 16-bit shots at 16 bits. Cancel stops at once and changes nothing.&lt;/li&gt;&lt;li&gt;&lt;b&gt;Check and retouch.&lt;/b&gt; &lt;i&gt;Before and after&lt;/i&gt; compares the result with the selected shot; &lt;i&gt;Depth map&lt;/i&gt; shows which shot each pixel came from. The &lt;i&gt;Retouch brush&lt;/i&gt; (B) paints the result from the selected shot, or from the shot sharpest where the stroke starts, exactly as the merge aligned it; every stroke can be undone.&lt;/li&gt;&lt;li&gt;&lt;b&gt;Crop and save.&lt;/b&gt; &lt;i&gt;Crop&lt;/i&gt; (C) takes a rectangle, free or at a ratio, Enter applies it. Save keeps 16 bits in PNG and TIFF and carries the first shot&apos;s EXIF and colour profile.&lt;/li&gt;&lt;/ol&gt;&lt;p&gt;&lt;b&gt;Many stacks:&lt;/b&gt; File &amp;gt; Batch stacking queues folders and stacks each with the settings of the Shots panel, saving each result beside its folder.&lt;/p&gt;&lt;p&gt;&lt;b&gt;Viewing:&lt;/b&gt; the wheel zooms about the cursor, dragging pans (the middle button while the brush or the crop is on), Ctrl+1 shows 100%, Ctrl+0 fits the window.&lt;/p&gt;</source>
        <translation>&lt;h3&gt;Объединение по фокусу в пять шагов&lt;/h3&gt;&lt;ol&gt;&lt;li&gt;&lt;b&gt;Откройте снимки&lt;/b&gt; (Файл &amp;gt; Открыть снимки или Открыть папку, либо перетащите файлы или папку в окно). Они идут в порядке имён: обычно сначала ближний фокус.&lt;/li&gt;&lt;li&gt;&lt;b&gt;Настройте серию.&lt;/b&gt; Снимите отметку со снимка, чтобы исключить его; перемещайте снимки раньше или позже; &lt;i&gt;Сделать опорным&lt;/i&gt; переносит снимок в начало, и остальные выравниваются и подгоняются по экспозиции к нему. Снимки, только добавленные после прошлого объединения, присоединяются к нему без повторной работы.&lt;/li&gt;&lt;li&gt;&lt;b&gt;Объедините.&lt;/b&gt; &lt;i&gt;Карта глубины&lt;/i&gt; сделана для настоящих серий с рук: выравнивает экспозицию и баланс белого, следует за «дыханием» фокуса, дрожанием и параллаксом при &lt;i&gt;автоматическом&lt;/i&gt; выравнивании и сохраняет 16-битные снимки в 16 битах. Отмена останавливает работу сразу и ничего не меняет.&lt;/li&gt;&lt;li&gt;&lt;b&gt;Проверьте и отретушируйте.&lt;/b&gt; &lt;i&gt;До и после&lt;/i&gt; сравнивает результат с выбранным снимком; &lt;i&gt;Карта глубины&lt;/i&gt; показывает, из какого снимка взят каждый пиксель. &lt;i&gt;Кисть ретуши&lt;/i&gt; (B) рисует по результату пикселями выбранного снимка или самого резкого там, где начат мазок, ровно так, как их выровняло объединение; каждый мазок можно отменить.&lt;/li&gt;&lt;li&gt;&lt;b&gt;Кадрируйте и сохраните.&lt;/b&gt; &lt;i&gt;Кадрировать&lt;/i&gt; (C) берёт прямоугольник, свободный или с соотношением сторон, Enter применяет его. Сохранение держит 16 бит в PNG и TIFF и переносит EXIF и цветовой профиль первого снимка.&lt;/li&gt;&lt;/ol&gt;&lt;p&gt;&lt;b&gt;Много серий:&lt;/b&gt; Файл &amp;gt; Пакетное объединение ставит папки в очередь и объединяет каждую с настройками панели снимков, сохраняя результат рядом с папкой.&lt;/p&gt;&lt;p&gt;&lt;b&gt;Просмотр:&lt;/b&gt; колесо меняет масштаб у курсора, перетаскивание сдвигает вид (средней кнопкой, пока включены кисть или кадрирование), Ctrl+1 показывает 100%, Ctrl+0 вписывает в окно.&lt;/p&gt;</translation>
    </message>
    <message>
        <source>Keyboard shortcuts</source>
        <translation>Клавиатурные сокращения</translation>
    </message>
    <message>
        <source>About Vexa Studio</source>
        <translation>О программе Vexa Studio</translation>
    </message>
    <message>
        <source>&lt;h3&gt;Vexa Studio %1&lt;/h3&gt;&lt;p&gt;Focus stacking and image tools on the Vexa library.&lt;/p&gt;&lt;p&gt;Vexa library %1&lt;br&gt;Qt %2 (built with %3)&lt;br&gt;OpenCV %4&lt;/p&gt;</source>
        <translation>&lt;h3&gt;Vexa Studio %1&lt;/h3&gt;&lt;p&gt;Объединение по фокусу и обработка изображений на библиотеке Vexa.&lt;/p&gt;&lt;p&gt;Библиотека Vexa %1&lt;br&gt;Qt %2 (сборка с %3)&lt;br&gt;OpenCV %4&lt;/p&gt;</translation>
    </message>
</context>
<context>
    <name>studio::MainWindow</name>
    <message>
        <source>Vexa Studio</source>
        <translation>Vexa Studio</translation>
    </message>
    <message>
        <source>Depth map</source>
        <translation>Карта глубины</translation>
    </message>
    <message>
        <source>Maximum sharpness</source>
        <translation>Наибольшая резкость</translation>
    </message>
    <message>
        <source>Pyramid</source>
        <translation>Пирамида</translation>
    </message>
    <message>
        <source>Weighted, running</source>
        <translation>Взвешенное, по ходу</translation>
    </message>
    <message>
        <source>Weighted, all shots</source>
        <translation>Взвешенное, по всем снимкам</translation>
    </message>
    <message>
        <source>How the shots are merged. Only the depth-map method also gives a depth map.</source>
        <translation>Как объединяются снимки. Карту глубины даёт только метод «Карта глубины».</translation>
    </message>
    <message>
        <source>None (tripod)</source>
        <translation>Нет (штатив)</translation>
    </message>
    <message>
        <source>Automatic (hand-held)</source>
        <translation>Автоматически (с рук)</translation>
    </message>
    <message>
        <source>Keypoints</source>
        <translation>По ключевым точкам</translation>
    </message>
    <message>
        <source>Local stabilization</source>
        <translation>Локальная стабилизация</translation>
    </message>
    <message>
        <source>Line the shots up with the first before merging them. Automatic follows focus breathing, shake and parallax, and leaves shots that did not move as they are.</source>
        <translation>Совместить снимки с первым перед объединением. Автоматический режим учитывает изменение масштаба при фокусировке, дрожание и параллакс и оставляет неподвижные снимки как есть.</translation>
    </message>
    <message>
        <source>Method:</source>
        <translation>Метод:</translation>
    </message>
    <message>
        <source>Alignment:</source>
        <translation>Выравнивание:</translation>
    </message>
    <message>
        <source>&amp;Stack</source>
        <translation>&amp;Объединить</translation>
    </message>
    <message>
        <source>Cancel</source>
        <translation>Отмена</translation>
    </message>
    <message>
        <source>cancelling...</source>
        <translation>отмена...</translation>
    </message>
    <message>
        <source>Shots</source>
        <translation>Снимки</translation>
    </message>
    <message>
        <source>Histogram of the view</source>
        <translation>Гистограмма видимой части</translation>
    </message>
    <message>
        <source>&amp;File</source>
        <translation>&amp;Файл</translation>
    </message>
    <message>
        <source>&amp;Open shots...</source>
        <translation>&amp;Открыть снимки...</translation>
    </message>
    <message>
        <source>Open &amp;folder...</source>
        <translation>Открыть &amp;папку...</translation>
    </message>
    <message>
        <source>&amp;Save result...</source>
        <translation>&amp;Сохранить результат...</translation>
    </message>
    <message>
        <source>Save result</source>
        <translation>Сохранить результат</translation>
    </message>
    <message>
        <source>Save &amp;depth map...</source>
        <translation>Сохранить &amp;карту глубины...</translation>
    </message>
    <message>
        <source>Save depth map</source>
        <translation>Сохранить карту глубины</translation>
    </message>
    <message>
        <source>&amp;Quit</source>
        <translation>&amp;Выход</translation>
    </message>
    <message>
        <source>&amp;Edit</source>
        <translation>&amp;Правка</translation>
    </message>
    <message>
        <source>&amp;Undo</source>
        <translation>&amp;Отменить</translation>
    </message>
    <message>
        <source>&amp;Redo</source>
        <translation>&amp;Повторить</translation>
    </message>
    <message>
        <source>&amp;View</source>
        <translation>&amp;Вид</translation>
    </message>
    <message>
        <source>&amp;Result</source>
        <translation>&amp;Результат</translation>
    </message>
    <message>
        <source>&amp;Before and after</source>
        <translation>&amp;До и после</translation>
    </message>
    <message>
        <source>&amp;Depth map</source>
        <translation>&amp;Карта глубины</translation>
    </message>
    <message>
        <source>Zoom to &amp;fit</source>
        <translation>&amp;По размеру окна</translation>
    </message>
    <message>
        <source>&amp;Actual size (100%)</source>
        <translation>&amp;Исходный размер (100%)</translation>
    </message>
    <message>
        <source>Zoom &amp;in</source>
        <translation>&amp;Увеличить</translation>
    </message>
    <message>
        <source>Zoom &amp;out</source>
        <translation>&amp;Уменьшить</translation>
    </message>
    <message>
        <source>Main</source>
        <translation>Основная</translation>
    </message>
    <message>
        <source>Open shots</source>
        <translation>Открыть снимки</translation>
    </message>
    <message>
        <source>Images (%1)</source>
        <translation>Изображения (%1)</translation>
    </message>
    <message>
        <source>Open a folder of shots</source>
        <translation>Открыть папку со снимками</translation>
    </message>
    <message>
        <source>Wait for the current work to finish, or cancel it.</source>
        <translation>Дождитесь окончания текущей работы или отмените её.</translation>
    </message>
    <message>
        <source>No images</source>
        <translation>Нет изображений</translation>
    </message>
    <message>
        <source>No image files were found in:
%1</source>
        <translation>Не найдено файлов изображений в:
%1</translation>
    </message>
    <message>
        <source>%1: %2</source>
        <translation>%1: %2</translation>
    </message>
    <message>
        <source>No shots</source>
        <translation>Нет снимков</translation>
    </message>
    <message>
        <source>Open the shots first: File &gt; Open shots, or drop image files or a folder on the window.</source>
        <translation>Сначала откройте снимки: Файл &gt; Открыть снимки, или перетащите файлы изображений или папку в окно.</translation>
    </message>
    <message>
        <source>There is no image to work on: open shots, or stack them first.</source>
        <translation>Нет изображения для обработки: откройте снимки или сначала объедините их.</translation>
    </message>
    <message>
        <source>Cancelled; nothing was changed.</source>
        <translation>Отменено; ничего не изменено.</translation>
    </message>
    <message numerus="yes">
        <source>%n shot(s) opened.</source>
        <translation>
            <numerusform>Открыт %n снимок.</numerusform>
            <numerusform>Открыто %n снимка.</numerusform>
            <numerusform>Открыто %n снимков.</numerusform>
        </translation>
    </message>
    <message>
        <source>Some shots cannot be read</source>
        <translation>Некоторые снимки не удалось прочитать</translation>
    </message>
    <message>
        <source>Stacking failed.</source>
        <translation>Объединение не удалось.</translation>
    </message>
    <message>
        <source>Stacking failed</source>
        <translation>Объединение не удалось</translation>
    </message>
    <message numerus="yes">
        <source>%n shot(s) stacked.</source>
        <translation>
            <numerusform>Объединён %n снимок.</numerusform>
            <numerusform>Объединено %n снимка.</numerusform>
            <numerusform>Объединено %n снимков.</numerusform>
        </translation>
    </message>
    <message>
        <source>%1 failed.</source>
        <translation>%1: не удалось.</translation>
    </message>
    <message>
        <source>%1 failed</source>
        <translation>%1: не удалось</translation>
    </message>
    <message>
        <source>%1: done.</source>
        <translation>%1: готово.</translation>
    </message>
    <message>
        <source>starting...</source>
        <translation>начало...</translation>
    </message>
    <message>
        <source>No depth map: stack the shots with the depth-map method.</source>
        <translation>Нет карты глубины: объедините снимки методом «Карта глубины».</translation>
    </message>
    <message>
        <source>Depth map: blue = shot 1 (near), red = shot %1 (far)</source>
        <translation>Карта глубины: синий = снимок 1 (близко), красный = снимок %1 (далеко)</translation>
    </message>
    <message>
        <source>No result yet: stack the shots to compare the result with them.</source>
        <translation>Результата пока нет: объедините снимки, чтобы сравнить с ними результат.</translation>
    </message>
    <message>
        <source>After: result</source>
        <translation>После: результат</translation>
    </message>
    <message>
        <source>Before: %1</source>
        <translation>До: %1</translation>
    </message>
    <message>
        <source>Result</source>
        <translation>Результат</translation>
    </message>
    <message>
        <source>Open shots (File &gt; Open shots or Open folder), or drop image files or a folder here.</source>
        <translation>Откройте снимки (Файл &gt; Открыть снимки или Открыть папку) или перетащите сюда файлы изображений или папку.</translation>
    </message>
    <message>
        <source>This shot cannot be shown.</source>
        <translation>Этот снимок не удаётся показать.</translation>
    </message>
    <message>
        <source>There is nothing to save yet.</source>
        <translation>Сохранять пока нечего.</translation>
    </message>
    <message>
        <source>PNG image (*.png);;TIFF image (*.tif *.tiff);;JPEG image (*.jpg);;All files (*)</source>
        <translation>Изображение PNG (*.png);;Изображение TIFF (*.tif *.tiff);;Изображение JPEG (*.jpg);;Все файлы (*)</translation>
    </message>
    <message>
        <source>Cannot save %1</source>
        <translation>Не удалось сохранить %1</translation>
    </message>
    <message>
        <source>Saved %1</source>
        <translation>Сохранено: %1</translation>
    </message>
    <message>
        <source>The library gave no reason.</source>
        <translation>Библиотека не сообщила причину.</translation>
    </message>
    <message>
        <source>On %1: %2</source>
        <translation>Изображение %1: %2</translation>
    </message>
    <message>
        <source>Retouch</source>
        <translation>Ретушь</translation>
    </message>
    <message>
        <source>Cancelled.</source>
        <translation>Отменено.</translation>
    </message>
    <message>
        <source>Shot %1 ready for the brush.</source>
        <translation>Снимок %1 готов для кисти.</translation>
    </message>
    <message>
        <source>S&amp;hots</source>
        <translation>&amp;Снимки</translation>
    </message>
    <message>
        <source>&amp;Stack %1 of %2</source>
        <translation>&amp;Объединить %1 из %2</translation>
    </message>
    <message>
        <source>Every shot is left out: tick the boxes of the shots to stack.</source>
        <translation>Все снимки исключены: отметьте снимки, которые нужно объединить.</translation>
    </message>
    <message numerus="yes">
        <source>Adding %n shot(s) to the last stack...</source>
        <translation>
            <numerusform>Добавление %n снимка к прошлому объединению...</numerusform>
            <numerusform>Добавление %n снимков к прошлому объединению...</numerusform>
            <numerusform>Добавление %n снимков к прошлому объединению...</numerusform>
        </translation>
    </message>
    <message>
        <source>Leave %1 out</source>
        <translation>Исключить %1</translation>
    </message>
    <message>
        <source>%1 is left out; Stack again to merge the others.</source>
        <translation>%1 исключён; нажмите «Объединить», чтобы объединить остальные.</translation>
    </message>
    <message>
        <source>result</source>
        <translation>результат</translation>
    </message>
    <message>
        <source>depth-map</source>
        <translation>карта-глубины</translation>
    </message>
    <message>
        <source>&amp;Batch stacking...</source>
        <translation>&amp;Пакетное объединение...</translation>
    </message>
    <message>
        <source>Undo</source>
        <translation>Отменить</translation>
    </message>
    <message>
        <source>Redo</source>
        <translation>Повторить</translation>
    </message>
    <message>
        <source>&amp;Crop</source>
        <translation>&amp;Кадрировать</translation>
    </message>
    <message>
        <source>Crop the result: drag a rectangle, free or at a fixed ratio, then press Enter (C).</source>
        <translation>Кадрировать результат: обведите прямоугольник, свободный или с заданным соотношением сторон, и нажмите Enter (C).</translation>
    </message>
    <message>
        <source>&amp;Help</source>
        <translation>&amp;Справка</translation>
    </message>
    <message>
        <source>&amp;Guide</source>
        <translation>&amp;Руководство</translation>
    </message>
    <message>
        <source>&amp;Keyboard shortcuts</source>
        <translation>&amp;Клавиатурные сокращения</translation>
    </message>
    <message>
        <source>&amp;About Vexa Studio</source>
        <translation>&amp;О программе Vexa Studio</translation>
    </message>
    <message>
        <source>Crop</source>
        <translation>Кадрирование</translation>
    </message>
    <message>
        <source>Free</source>
        <translation>Свободно</translation>
    </message>
    <message>
        <source>As the image</source>
        <translation>Как у изображения</translation>
    </message>
    <message>
        <source>Drag a rectangle over the image.</source>
        <translation>Обведите прямоугольник на изображении.</translation>
    </message>
    <message>
        <source>%1 × %2 at (%3, %4)</source>
        <translation>%1 × %2 в точке (%3, %4)</translation>
    </message>
    <message>
        <source>Apply crop</source>
        <translation>Кадрировать</translation>
    </message>
    <message>
        <source>Cancel the crop</source>
        <translation>Отменить кадрирование</translation>
    </message>
    <message>
        <source>Ratio:</source>
        <translation>Соотношение:</translation>
    </message>
    <message>
        <source>Drag a rectangle over the image first.</source>
        <translation>Сначала обведите прямоугольник на изображении.</translation>
    </message>
    <message>
        <source>Saved %1.</source>
        <translation>Сохранено: %1.</translation>
    </message>
    <message>
        <source>Reading %1...</source>
        <translation>Чтение %1...</translation>
    </message>
    <message>
        <source>JPEG quality (0 to 100):</source>
        <translation>Качество JPEG (от 0 до 100):</translation>
    </message>
    <message>
        <source>Each folder is stacked with the settings of the Shots panel: %1, alignment %2.</source>
        <translation>Каждая папка объединяется с настройками панели снимков: %1, выравнивание: %2.</translation>
    </message>
    <message>
        <source>LZW (lossless, smaller)</source>
        <translation>LZW (без потерь, меньше)</translation>
    </message>
    <message>
        <source>None</source>
        <translation>Без сжатия</translation>
    </message>
    <message>
        <source>TIFF compression:</source>
        <translation>Сжатие TIFF:</translation>
    </message>
</context>
<context>
    <name>studio::RetouchPanel</name>
    <message>
        <source>Retouch &amp;brush</source>
        <translation>&amp;Кисть ретуши</translation>
    </message>
    <message>
        <source>Paint the result from a single shot (B). The middle button pans meanwhile.</source>
        <translation>Рисовать по результату пикселями одного снимка (B). Средняя кнопка мыши при этом сдвигает вид.</translation>
    </message>
    <message>
        <source>The selected shot</source>
        <translation>Выбранный снимок</translation>
    </message>
    <message>
        <source>The shot sharpest here</source>
        <translation>Самый резкий здесь снимок</translation>
    </message>
    <message>
        <source>Where the brush paints from: the shot selected in the list, or the shot the depth map chose where the stroke starts.</source>
        <translation>Откуда берёт пиксели кисть: из снимка, выбранного в списке, или из снимка, который карта глубины выбрала там, где начинается мазок.</translation>
    </message>
    <message>
        <source> px</source>
        <translation> пикс.</translation>
    </message>
    <message>
        <source>The brush&apos;s radius, in pixels of the image</source>
        <translation>Радиус кисти в пикселях изображения</translation>
    </message>
    <message>
        <source>How much of the radius paints fully; the rest fades out. At 100 % the painted pixels are the shot&apos;s exactly.</source>
        <translation>Какая доля радиуса закрашивается полностью; дальше кисть плавно сходит на нет. При 100 % закрашенные пиксели в точности равны пикселям снимка.</translation>
    </message>
    <message>
        <source>From:</source>
        <translation>Откуда:</translation>
    </message>
    <message>
        <source>Size:</source>
        <translation>Размер:</translation>
    </message>
    <message>
        <source>Hardness:</source>
        <translation>Жёсткость:</translation>
    </message>
    <message>
        <source>shot %1, %2</source>
        <translation>снимок %1, %2</translation>
    </message>
    <message>
        <source>Stack the shots to retouch the result from them.</source>
        <translation>Совместите снимки, чтобы ретушировать результат по ним.</translation>
    </message>
    <message>
        <source>Stack the shots first: the brush paints the result from them.</source>
        <translation>Сначала совместите снимки: кисть рисует по результату их пикселями.</translation>
    </message>
    <message>
        <source>The selected shot is not one of the stack&apos;s.</source>
        <translation>Выбранный снимок не входит в совмещённую серию.</translation>
    </message>
    <message>
        <source>Painting from %1.</source>
        <translation>Кисть рисует из: %1.</translation>
    </message>
    <message>
        <source>Preparing %1...</source>
        <translation>Подготовка: %1...</translation>
    </message>
    <message>
        <source>Wait for the current work to finish, or cancel it.</source>
        <translation>Дождитесь окончания текущей работы или отмените её.</translation>
    </message>
    <message>
        <source>Retouch from %1</source>
        <translation>Ретушь из: %1</translation>
    </message>
    <message>
        <source>The brush paints only on the stack&apos;s own result: this result is %1 and the shot %2.</source>
        <translation>Кисть рисует только по результату совмещения: этот результат — %1, а снимок — %2.</translation>
    </message>
</context>
<context>
    <name>studio::ShotList</name>
    <message>
        <source>The shots, in stacking order. Select one to see it, or to compare it with the result; clear its box to leave it out of the stack.</source>
        <translation>Снимки в порядке объединения. Выберите снимок, чтобы увидеть его или сравнить с результатом; снимите отметку, чтобы исключить его из объединения.</translation>
    </message>
    <message>
        <source>Move &amp;earlier</source>
        <translation>&amp;Раньше</translation>
    </message>
    <message>
        <source>Move &amp;later</source>
        <translation>&amp;Позже</translation>
    </message>
    <message>
        <source>Make it the &amp;reference</source>
        <translation>Сделать &amp;опорным</translation>
    </message>
    <message>
        <source>Move the shot to the front: the first shot is the one the others are aligned and exposed to.</source>
        <translation>Переместить снимок в начало: по первому снимку выравниваются остальные и подбирается их экспозиция.</translation>
    </message>
    <message>
        <source>Re&amp;move</source>
        <translation>&amp;Удалить</translation>
    </message>
</context>
<context>
    <name>studio::StackWorker</name>
    <message>
        <source>reading %1</source>
        <translation>чтение %1</translation>
    </message>
    <message>
        <source>the image cannot be shown</source>
        <translation>изображение не удаётся показать</translation>
    </message>
    <message>
        <source>shot %1 of %2: </source>
        <translation>снимок %1 из %2: </translation>
    </message>
    <message>
        <source>%1: %2</source>
        <translation>%1: %2</translation>
    </message>
    <message>
        <source>the stack cannot take this shot</source>
        <translation>этот снимок нельзя добавить к стопке</translation>
    </message>
    <message>
        <source>finishing the merge</source>
        <translation>завершение объединения</translation>
    </message>
    <message>
        <source>the stack gave no image</source>
        <translation>объединение не дало изображения</translation>
    </message>
    <message>
        <source>it is %1, but the first shot is %2; all shots must be alike</source>
        <translation>снимок %1, а первый снимок — %2; все снимки должны быть одинаковыми</translation>
    </message>
    <message>
        <source>cannot bring it to the first shot&apos;s layout</source>
        <translation>его нельзя привести к формату первого снимка</translation>
    </message>
    <message>
        <source>writing %1</source>
        <translation>запись %1</translation>
    </message>
    <message>
        <source>%1: cannot write it: %2</source>
        <translation>%1: записать не удалось: %2</translation>
    </message>
</context>
<context>
    <name>studio::ToolsMenu</name>
    <message>
        <source>Brightness and contrast</source>
        <translation>Яркость и контраст</translation>
    </message>
    <message>
        <source>Brightness</source>
        <translation>Яркость</translation>
    </message>
    <message>
        <source>Contrast</source>
        <translation>Контраст</translation>
    </message>
    <message>
        <source>&amp;Tools</source>
        <translation>&amp;Инструменты</translation>
    </message>
    <message>
        <source>&amp;Convert</source>
        <translation>&amp;Преобразовать</translation>
    </message>
    <message>
        <source>Gray, 8 bits</source>
        <translation>Серое, 8 бит</translation>
    </message>
    <message>
        <source>Gray, 16 bits</source>
        <translation>Серое, 16 бит</translation>
    </message>
    <message>
        <source>Gray, floating point</source>
        <translation>Серое, с плавающей точкой</translation>
    </message>
    <message>
        <source>Colour (BGR), 8 bits</source>
        <translation>Цветное (BGR), 8 бит</translation>
    </message>
    <message>
        <source>Colour (XRGB), 8 bits</source>
        <translation>Цветное (XRGB), 8 бит</translation>
    </message>
    <message>
        <source>Colour with alpha (ARGB), 8 bits</source>
        <translation>Цветное с альфа-каналом (ARGB), 8 бит</translation>
    </message>
    <message>
        <source>&amp;Filters</source>
        <translation>&amp;Фильтры</translation>
    </message>
    <message>
        <source>Gaussian blur...</source>
        <translation>Размытие по Гауссу...</translation>
    </message>
    <message>
        <source>Gaussian blur</source>
        <translation>Размытие по Гауссу</translation>
    </message>
    <message>
        <source>Kernel size (pixels):</source>
        <translation>Размер ядра (пиксели):</translation>
    </message>
    <message>
        <source>Median...</source>
        <translation>Медианный фильтр...</translation>
    </message>
    <message>
        <source>Median</source>
        <translation>Медианный фильтр</translation>
    </message>
    <message>
        <source>Sharpen...</source>
        <translation>Резкость...</translation>
    </message>
    <message>
        <source>Sharpen</source>
        <translation>Резкость</translation>
    </message>
    <message>
        <source>Strength (1 leaves the image as it is):</source>
        <translation>Сила (1 оставляет изображение как есть):</translation>
    </message>
    <message>
        <source>Local contrast...</source>
        <translation>Локальный контраст...</translation>
    </message>
    <message>
        <source>Local contrast</source>
        <translation>Локальный контраст</translation>
    </message>
    <message>
        <source>Amount (percent):</source>
        <translation>Величина (проценты):</translation>
    </message>
    <message>
        <source>Erode</source>
        <translation>Эрозия</translation>
    </message>
    <message>
        <source>Dilate</source>
        <translation>Дилатация</translation>
    </message>
    <message>
        <source>&amp;Rotate and flip</source>
        <translation>&amp;Поворот и отражение</translation>
    </message>
    <message>
        <source>Rotate left (90°)</source>
        <translation>Повернуть влево (90°)</translation>
    </message>
    <message>
        <source>Rotate right (90°)</source>
        <translation>Повернуть вправо (90°)</translation>
    </message>
    <message>
        <source>Rotate 180°</source>
        <translation>Повернуть на 180°</translation>
    </message>
    <message>
        <source>Rotate by angle...</source>
        <translation>Повернуть на угол...</translation>
    </message>
    <message>
        <source>Rotate by angle</source>
        <translation>Повернуть на угол</translation>
    </message>
    <message>
        <source>Angle in degrees (counter-clockwise):</source>
        <translation>Угол в градусах (против часовой стрелки):</translation>
    </message>
    <message>
        <source>Flip horizontally</source>
        <translation>Отразить по горизонтали</translation>
    </message>
    <message>
        <source>Flip vertically</source>
        <translation>Отразить по вертикали</translation>
    </message>
    <message>
        <source>Resize...</source>
        <translation>Изменить размер...</translation>
    </message>
    <message>
        <source>Resize</source>
        <translation>Изменить размер</translation>
    </message>
    <message>
        <source>New size (percent of the current one):</source>
        <translation>Новый размер (процент от текущего):</translation>
    </message>
    <message>
        <source>Brightness and contrast...</source>
        <translation>Яркость и контраст...</translation>
    </message>
</context>
</TS>
