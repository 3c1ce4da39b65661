#include <vexa/imp/exceptions.h>

namespace VEXA {

exception::exception(const std::string& message) : message_(message) {}
exception::exception(const exception& other) : std::exception(other), message_(other.message_) {}
exception::~exception() = default;
const char* exception::what() const noexcept { return message_.c_str(); }

} // namespace VEXA
