/// @file
/// @brief The exceptions that carry failures inside an operation (group @ref status).
#pragma once

#include <exception>
#include <string>

#include <vexa/vexa_export.h>

namespace VEXA {

/// @addtogroup status
/// **Exceptions inside operations** (VEXA::exception and its subclasses): failures travel inside an
/// operation as exceptions, and none leaves the library. Every operation's frame catches whatever its body
/// throws, writes one error record (module "Vexa", the operation's full signature, its source and line) and
/// returns a failed VStatus carrying the same text:
/// - dip_exception and its subclasses, and dip_ocv_exception: "Reason: " followed by what(), issue
///   Issue::LibraryError (3200); VStatus::reason() is the exception's reason() where it has one, else what();
/// - dip_exception_cancelled: "Operation cancelled" (translated), issue Issue::Cancelled (4100);
/// - OpenCV's errors: "Reason: ERR Error code: CODE Function: FUNC File: FILE Line: LINE", issue
///   Issue::OpenCvError (3100), with the reason "OpenCV failed in FUNC: ERR" ("OpenCV failed: ERR" when no
///   function is named);
/// - memory that could not be had: "Unexpected error.", issue 3200, with the reason "out of memory";
/// - anything else, a VEXA::exception thrown as itself (not as one of its subclasses) included:
///   "Unexpected error.", issue 3200.
/// @{

/// The base of the library's exceptions: a message (what()) and, where the message is a fixed code-like
/// text, a plainer reason(). Copies are independent. Thrown as itself rather than as a subclass, it reaches
/// the caller's status only as "Unexpected error.".
class VEXA_EXPORT exception : public std::exception {
public:
    /// An exception whose what() is @p message, with no reason.
    explicit exception(const std::string& message);
    /// A copy of @p other's message and reason.
    exception(const exception& other);
    /// Destroys the exception.
    ~exception() override;
    /// The message; the failed status's text is "Reason: " followed by it.
    const char* what() const noexcept override;
    /// What went wrong in plainer words than what(), when there are any (empty otherwise): the failed
    /// status's reason().
    const char* reason() const noexcept;
    /// Sets what reason() returns.
    void setReason(const std::string& reason);

private:
    std::string message_;
    std::string reason_;
};

/// The library's refusals: raster access, the frame's argument checks ("Null pointer argument!") and an
/// operation's refusal of its arguments ("Gamma must be positive"). The status reads "Reason: " followed by
/// what() (issue 3200).
class VEXA_EXPORT dip_exception : public exception {
public:
    /// The constructors of VEXA::exception: an exception with the message given.
    using exception::exception;
};

/// An input image or image list whose own status is a failure: "Bad status of image!".
class VEXA_EXPORT dip_exception_bad_status : public dip_exception {
public:
    /// The constructors of VEXA::exception: the same refusal with a message of the thrower's.
    using dip_exception::dip_exception;
    /// The refusal with its usual message, "Bad status of image!".
    dip_exception_bad_status() : dip_exception("Bad status of image!") {}
};

/// The caller cancelled the operation through its VProgress. The status reads "Operation cancelled"
/// (translated), issue Issue::Cancelled.
class VEXA_EXPORT dip_exception_cancelled : public dip_exception {
public:
    /// The cancellation; what() is "Operation cancelled".
    dip_exception_cancelled() : dip_exception("Operation cancelled") {}
};

/// An empty input image or image list: "Empty source image!".
class VEXA_EXPORT dip_exception_empty_source_image : public dip_exception {
public:
    /// The constructors of VEXA::exception: the same refusal with a message of the thrower's.
    using dip_exception::dip_exception;
    /// The refusal with its usual message, "Empty source image!".
    dip_exception_empty_source_image() : dip_exception("Empty source image!") {}
};

/// Arguments the operation has no implementation for, most often the image's pixel format and channel
/// type: "Can not find template with actual parameters!", with a reason such as "the operation does not take
/// BGR 16s images". Some operations throw it with texts of their own ("Unsupported interpolation method").
class VEXA_EXPORT dip_exception_unsupported_parameters : public dip_exception {
public:
    /// The constructors of VEXA::exception: the same refusal with a message of the thrower's.
    using dip_exception::dip_exception;
    /// The refusal with its usual message, "Can not find template with actual parameters!".
    dip_exception_unsupported_parameters() : dip_exception("Can not find template with actual parameters!") {}
};

/// Reserved for failures of the OpenCV layer; every frame catches it (as dip_exception: "Reason: " followed
/// by what(), issue 3200), nothing raises it today.
class VEXA_EXPORT dip_ocv_exception : public exception {
public:
    /// The constructors of VEXA::exception: an exception with the message given.
    using exception::exception;
};

/// @}

} // namespace VEXA
