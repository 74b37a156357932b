# SPDX-License-Identifier: MIT
# Makes a source file of page.html and page.css, beside this one: cmake -DTO=PageTemplate.cpp -P Embed.cmake
# In parts, since compilers limit the length of one literal.
file(READ ${CMAKE_CURRENT_LIST_DIR}/page.html rest)
file(READ ${CMAKE_CURRENT_LIST_DIR}/page.css style)
string(REPLACE "@STYLE@" "\n${style}" rest "${rest}")
set(parts "")
while(NOT rest STREQUAL "")
  string(LENGTH "${rest}" length)
  string(SUBSTRING "${rest}" 0 8000 part)
  string(APPEND parts "    R\"page(${part})page\"\n")
  if(length GREATER 8000)
    string(SUBSTRING "${rest}" 8000 -1 rest)
  else()
    set(rest "")
  endif()
endwhile()
file(WRITE ${TO} "#include \"tools/page/PageTemplate.h\"\n
namespace fbr {

const std::string_view kPageTemplate =
${parts}    ;

}  // namespace fbr
")
