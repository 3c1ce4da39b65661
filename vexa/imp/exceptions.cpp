#include <vexa/imp/exceptions.h>

namespace VEXA {

exception::exception(const std::string& message) : message_(message) {}
exception::exception(const exception& other)
    : std::exception(other), message_(other.message_), reason_(other.reason_)
{
}
exception::~exception() = default;
const char* exception::what() const noexcept { return message_.c_str(); }
const char* exception::reason() const noexcept { return reason_.c_str(); }
void exception::setReason(const std::string& reason) { reason_ = reason; }

} // namespace VEXA
