// The exceptions that carry failures inside an operation. No exception leaves the library: the operation
// frame (frame.h) turns each into a logged message and a failed VStatus whose text is "Reason: " followed
// by what().
#pragma once

#include <exception>
#include <string>

#include <vexa/vexa_export.h>

namespace VEXA {

class VEXA_EXPORT exception : public std::exception {
public:
    explicit exception(const std::string& message);
    exception(const exception& other);
    ~exception() override;
    const char* what() const noexcept override;
    // What went wrong in plainer words than what(), when there are any (empty otherwise): the failed
    // status's reason().
    const char* reason() const noexcept;
    void setReason(const std::string& reason);

private:
    std::string message_;
    std::string reason_;
};

// Raster access and the frame's argument checks.
class VEXA_EXPORT dip_exception : public exception {
public:
    using exception::exception;
};

class VEXA_EXPORT dip_exception_bad_status : public dip_exception {
public:
    using dip_exception::dip_exception;
    dip_exception_bad_status() : dip_exception("Bad status of image!") {}
};

// The caller cancelled the operation through its VProgress.
class VEXA_EXPORT dip_exception_cancelled : public dip_exception {
public:
    dip_exception_cancelled() : dip_exception("Operation cancelled") {}
};

class VEXA_EXPORT dip_exception_empty_source_image : public dip_exception {
public:
    using dip_exception::dip_exception;
    dip_exception_empty_source_image() : dip_exception("Empty source image!") {}
};

class VEXA_EXPORT dip_exception_unsupported_parameters : public dip_exception {
public:
    using dip_exception::dip_exception;
    dip_exception_unsupported_parameters() : dip_exception("Can not find template with actual parameters!") {}
};

// Reserved for failures of the OpenCV layer; every frame catches it, nothing raises it today.
class VEXA_EXPORT dip_ocv_exception : public exception {
public:
    using exception::exception;
};

} // namespace VEXA
