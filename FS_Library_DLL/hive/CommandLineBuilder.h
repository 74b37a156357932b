// SPDX-License-Identifier: MIT
// Builds a command line: a program and its options.
#pragma once

#include <string>
#include <vector>

class CommandLineBuilder {
  public:
    explicit CommandLineBuilder(std::wstring program) : program_(std::move(program)) {}

    // Adds an option with its values. A prefix other than "-", "--" and "/" becomes "-", a
    // separator other than " " and "=" becomes " ".
    void AddOption(std::wstring name, std::vector<std::wstring> values, std::wstring prefix,
                   std::wstring separator);

    // The program, then for each option a blank, the prefix and the name, each value behind the
    // separator; less white space at both ends.
    std::wstring Text() const;

    // `text` between double quotes; one that has them at both ends stays as it is.
    static std::wstring Quoted(const std::wstring& text);

  private:
    struct Option {
        std::wstring name;
        std::vector<std::wstring> values;
        std::wstring prefix;
        std::wstring separator;
    };

    std::wstring program_;
    std::vector<Option> options_;
};
