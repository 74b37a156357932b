// SPDX-License-Identifier: MIT
// The part of fmt that no argument's type changes, compiled once for all who format.
#include <fmt/format-inl.h>

FMT_BEGIN_NAMESPACE
namespace detail {

template auto dragonbox::to_decimal(float x) noexcept -> dragonbox::decimal_fp<float>;
template auto dragonbox::to_decimal(double x) noexcept -> dragonbox::decimal_fp<double>;
template auto thousands_sep_impl(locale_ref) -> thousands_sep_result<char>;
template auto decimal_point_impl(locale_ref) -> char;
template void buffer<char>::append(const char*, const char*);

}  // namespace detail
FMT_END_NAMESPACE
