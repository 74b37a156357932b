// SPDX-License-Identifier: MIT
// The exceptions of the platform helpers. They carry a Win32 error number and are caught where a
// store is opened; no exported function lets one out on purpose.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

namespace w32utils {

// The family: what all of them have.
class exception_t : public std::runtime_error {
  public:
    exception_t(uint32_t error, const std::string& text)
        : std::runtime_error(text), error_(error) {}
    // The Win32 error number.
    uint32_t Code() const noexcept { return error_; }

  private:
    uint32_t error_;
};

// A platform call failed.
class basic_w32_runtime_error : public exception_t {
  public:
    using exception_t::exception_t;
};

// A file could not be opened or asked.
class w32file_exception : public exception_t {
  public:
    using exception_t::exception_t;
};

}  // namespace w32utils
