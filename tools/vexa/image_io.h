// Images in and out of the tool: image files through the library's VImage, the library's own byte arrays
// in ".vexa" files, OpenCV views, and outputs that appear under their names only once complete. Every
// failure is a runtime Failure naming the file.
#pragma once

#include <vexa/imp/VImage.h>
#include <vexa/imp/image_files.h>

#include <QImage>
#include <QList>
#include <QPair>
#include <QSize>
#include <QString>

#include <opencv2/core.hpp>

namespace vexatool {

class Task;

// A copy of an 8-bit matrix as an image: one channel as GrayScale, three as BGR, four as XRGB.
VImage toVImage(const cv::Mat& mat);
// A view of an XRGB 8u image's pixels as a four-channel matrix (B, G, R, X); the image must outlive it.
cv::Mat asMat(const VImage& xrgb);
// A view of any image's pixels, one matrix channel per component; the image must outlive it.
cv::Mat view(const VImage& image);
// The image as 8-bit BGR for looking at and measuring: other component types saturated to 0..255, alpha
// and the X byte dropped.
cv::Mat toBgr8(const VImage& image);

// Whether the file holds one of the library's byte arrays (by its contents, whatever its name).
bool isByteArrayFile(const QString& fileName);

// What a file says besides its pixels.
struct FileFacts {
    QString fileFormat;            // as Qt detects it from the contents ("png"), or "vexa" for a byte array
    QList<QPair<QString, QString>> text; // Qt's text keys and their values, in Qt's order
    QSize dotsPerMetre;            // as Qt reads it; invalid for a byte array
};

// Reads an image file or a byte-array file as it is stored, and with facts, what the file says about it.
// With preferBgr (and no facts), 8-bit colour comes in as BGR where its decoder can write that directly
// (VEXA::FileReadOptions::preferBgr).
VImage readImage(const QString& fileName, FileFacts* facts = nullptr, bool preferBgr = false);
// What an image file's header says, and its size, without decoding a pixel: the resolution is left
// invalid (Qt gives it with the pixels only).
FileFacts readFacts(const QString& fileName, QSize* size);

// The size and layout of the image readImage would give.
struct ImageShape {
    QSize size;
    VEXA::Format format = VEXA::Invalid;
    VEXA::Channel channel = VEXA::ChannelInvalid;
    bool operator==(const ImageShape& other) const
    {
        return size == other.size && format == other.format && channel == other.channel;
    }
};
// The file's ImageShape from its header alone where the header tells it, so that a folder can be sorted
// out before any pixel is decoded; files with a colour table are decoded, since only the table says
// whether they come in as gray. False for a file that holds no image the tool reads.
bool peekImage(const QString& fileName, ImageShape* shape);
// The same picture in another layout and channel type (convertScaled), through premultiplied colour where
// straight alpha has no direct way; empty where there is none.
VImage inPair(const VImage& image, VEXA::Format format, VEXA::Channel channel);
// The image as XRGB 8u, or a runtime error naming it.
VImage asXrgb(const VImage& image, const QString& name);
// Reads an image file as XRGB 8u.
VImage loadXrgb(const QString& fileName);

// Names of formats and channel types as the command line takes and the tool prints them: gray, bgr,
// argb, xrgb, argb-premultiplied, yuv422; 8u, 8s, 16u, 16s, 32s, 32f. Parsing ignores case; an unknown
// name is a usage error listing the known ones.
QString formatName(VEXA::Format format);
QString channelName(VEXA::Channel channel);
QString pairName(VEXA::Format format, VEXA::Channel channel); // "bgr 8u"
VEXA::Format parseFormat(const QString& text);
VEXA::Channel parseChannel(const QString& text);

// An output's name must end in ".vexa" or a suffix Qt writes images of; otherwise a usage error.
void checkOutputFormat(const QString& fileName);
// That, and the output's folder exists and takes files (a runtime error otherwise): checked before any
// work starts, so that no long run is lost to a mistyped path.
void checkOutputName(const QString& fileName);
bool canWriteFormat(const QString& fileName);

// A file written under a temporary name in the output's folder (".NAME.tmp-XXXXXX.SUFFIX", the suffix
// kept so that it picks the same file format) and renamed into place by commit(); the temporary is
// removed when the object goes without a commit, by a failure or an interruption, so no half-written file
// ever stands under the final name.
class OutputFile {
public:
    explicit OutputFile(const QString& fileName);
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    const QString& temporaryName() const { return temporary_; }
    void commit();

private:
    QString fileName_;
    QString temporary_;
    bool committed_ = false;
};

// The folder of a command that writes several files (stabilize, sample): made with its missing parents
// on construction; when the object goes without a commit (a failure, an interruption), the files the run
// wrote into it that were not there before are removed, then the folders it made, if empty. A failure
// half-way thus leaves the disk as it was, bar the files the run overwrote.
class OutputFolder {
public:
    explicit OutputFolder(const QString& path);
    ~OutputFolder();
    OutputFolder(const OutputFolder&) = delete;
    OutputFolder& operator=(const OutputFolder&) = delete;

    // Notes a file about to be written; returns its name.
    QString add(const QString& fileName);
    void commit() { committed_ = true; }

private:
    QStringList madeFolders_; // outermost first
    QStringList newFiles_;
    bool committed_ = false;
};

// How image files are written for the rest of the run: JPEG and WebP quality, PNG and TIFF compression
// (-1 for the defaults), as the command line set them.
VEXA::FileWriteOptions& writeSettings();
// How image files are read for the rest of the run (EXIF orientation applied unless --keep-orientation).
VEXA::FileReadOptions& readSettings();

// Writes the image: a ".vexa" name gets the byte array, holding any image exactly; other names an image
// file (VEXA::writeImageFile), which holds 8-bit and 16-bit images, 16 bits in PNG and TIFF and the same
// picture in 8 bits elsewhere (anything else is refused with a pointer to ".vexa").
// With a task: shown as a step, and an interruption before the rename leaves nothing behind.
// The EXIF block and colour profile of the first image file the run read go into image files that hold
// them (JPEG, PNG, TIFF, WebP), orientation 1 where the pixels were turned upright; carryMetadata false
// for pictures of the tool's own (plots, depth maps).
void writeImage(const VImage& image, const QString& fileName, Task* task = nullptr, bool carryMetadata = true);
// The refusal writeImage would give, for checking before the work is done.
void checkWritable(VEXA::Format format, VEXA::Channel channel, const QString& fileName);
void writeImage(const QImage& image, const QString& fileName, Task* task = nullptr);
void saveImage(const cv::Mat& mat, const QString& fileName);
// A map of more than 8 bits (a depth map of shot indices) at its own size in false colour, labelled, under
// a colour bar from its smallest value to its largest.
QImage falseColourPicture(const VImage& map, const QString& label);

} // namespace vexatool
