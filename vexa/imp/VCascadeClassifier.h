/// @file
/// @brief Object detection by boosted cascades of Haar or LBP features (group @ref analysis).
#pragma once

#include <vexa/imp/VFigure.h>
#include <vexa/imp/VImage.h>
#include <vexa/vexa_export.h>

#include <QList>
#include <QSize>
#include <QString>
#include <QStringList>

#include <memory>

class VCascadeClassifier;

namespace VEXA {

/// @addtogroup analysis
/// **Object detection by cascades** (VCascadeClassifier, detectObjects()): a boosted cascade of Haar or
/// LBP features, from OpenCV's cascade XML files (the trained ones a system installs, such as
/// haarcascade_frontalface_default.xml, or one's own).
///
/// A VCascadeClassifier is loaded once and then used by detectObjects. Copies share the loaded cascade;
/// load() gives the object a cascade of its own, so copies made before keep theirs.
///
/// **Progress and cancellation (detectObjects()):** with a progress current on the calling thread, the
/// detection runs whole: it checks for a cancellation before it starts ("Operation cancelled", objects
/// untouched) and reports completion (stage "detecting objects"). The gray copy made before it is a step of the call
/// that neither reports nor checks on its own, so a cancelled progress gives "Operation cancelled".
///
/// **Threads (cascades):** OpenCV's classifier keeps working buffers inside and must not run twice at once,
/// so calls of detectObjects that share a cascade (one object or copies of it) take turns on a mutex:
/// sharing is safe, but such calls run one after another. For detection in parallel, load one classifier
/// per thread. load() changes the object and, like any non-const member, must not run while another thread
/// uses that object. detectObjects() is otherwise reentrant: one source may be read by several calls at
/// once; the objects list must not be used by another thread during the call.
/// @{

/// The objects the cascade finds in src's roi, as upright rectangles (angle 0) in the roi's pixel
/// coordinates, after grouping the raw hits: scaleFactor is the step between the scales searched (1.01 to
/// 10), minNeighbours how many overlapping hits an object needs to be kept (0 keeps every raw hit), and
/// minSize and maxSize bound the objects' size (QSize() or 0 x 0 means no bound; negative sizes fail; a
/// maxSize with a 0 side bounds nothing, as in OpenCV). src: every format
/// in 8u, searched on its gray copy (YUV422 by its luma) as it is, with no equalization. An empty
/// classifier, or one whose load failed, fails ("Cascade classifier is empty"); finding nothing is a good
/// status with an empty list.
///
/// The checks, in order: src as a source ("Bad status of image!", "Empty source image!"; another channel
/// type than 8u, or an invalid pair, "Can not find template with actual parameters!"); a null objects
/// "Null pointer argument!"; the empty classifier; "Scale factor must be from 1.01 to 10"; "Minimum
/// neighbours must not be negative"; "Object sizes must not be negative". objects is written only on
/// success.
VEXA_EXPORT VStatus detectObjects(const VImage& src, const VCascadeClassifier& classifier, QList<VRectBase>* objects,
                                  double scaleFactor = 1.1, int minNeighbours = 3, QSize minSize = QSize(),
                                  QSize maxSize = QSize());

/// @}

} // namespace VEXA

/// @addtogroup analysis
/// @{

/// A loaded cascade for detectObjects(), with the status and path of its last load.
///
/// A value whose copies share the loaded cascade (and take its status and path); load() and loadStandard()
/// give the object a cascade of its own, so copies made before keep theirs. See the group's rules for
/// threads: detections sharing a cascade take turns.
class VEXA_EXPORT VCascadeClassifier {
public:
    VCascadeClassifier(); ///< empty, with a good status
    /// As load(path).
    /// The outcome is kept in status().
    explicit VCascadeClassifier(const QString& path);
    /// Shares the other's cascade, and takes its status and path.
    VCascadeClassifier(const VCascadeClassifier&);
    /// Shares the other's cascade, and takes its status and path; this object's former cascade is
    /// released (destroyed once no copy holds it).
    VCascadeClassifier& operator=(const VCascadeClassifier&);
    /// Releases this object's share of the cascade.
    ~VCascadeClassifier();

    /// Reads a cascade file. A file that is missing, unreadable or no cascade fails with "Can't load
    /// cascade <path>" (and OpenCV's reason when its parser gave one); the object is then empty, its former
    /// cascade dropped. The status is also kept in status().
    ///
    /// An empty path or a folder fails the same way before OpenCV reads anything; OpenCV's reason comes
    /// after a colon: "Can't load cascade <path>: <reason>". The text is translated.
    VStatus load(const QString& path);
    /// Loads one of the standard cascades by its file name ("haarcascade_frontalface_default.xml",
    /// "lbpcascade_frontalface.xml"), found by standardCascadePath(); fails like load() when there is none.
    ///
    /// No file of that name elsewhere (the working folder, say) is taken. Without a standard cascade of
    /// that name the object is emptied and the call fails with "Can't load cascade <fileName>: no standard
    /// cascade of that name".
    VStatus loadStandard(const QString& fileName);

    /// Whether no cascade is loaded (never loaded, or the last load failed).
    bool isEmpty() const;
    /// The outcome of the last load; good for a classifier never loaded.
    VStatus status() const;
    /// The file the cascade came from; empty when none is loaded.
    /// (The path as given to load(), or as standardCascadePath() found it.)
    QString path() const;
    /// The size of the window the cascade was trained on: the smallest object it finds. Empty when none.
    /// (QSize() when none is loaded.) Waits for a detection running on the same cascade.
    QSize windowSize() const;

    /// The folder of the standard Haar cascades, found at run time: the environment variable
    /// VEXA_CASCADE_DIR when set and not empty (then it alone is looked at), else the first existing of
    /// /usr/share/opencv4/haarcascades and /usr/share/opencv/haarcascades. Empty when none exists.
    /// The folder is given as an absolute path.
    static QString standardCascadeFolder();
    /// The full path of a standard cascade: fileName (a bare file name, no folder) in that folder or in the
    /// "lbpcascades" folder beside it. Empty when there is no such file.
    /// A name holding '/' or '\\', and "." or "..", gives an empty result too.
    static QString standardCascadePath(const QString& fileName);

private:
    struct Data;
    friend VStatus VEXA::detectObjects(const VImage&, const VCascadeClassifier&, QList<VRectBase>*, double, int, QSize,
                                       QSize);
    std::shared_ptr<Data> d_;
    VStatus status_;
    QString path_;
};

/// @}
