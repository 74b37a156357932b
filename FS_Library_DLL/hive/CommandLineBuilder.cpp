// SPDX-License-Identifier: MIT
#include "FS_Library_DLL/hive/CommandLineBuilder.h"

void CommandLineBuilder::AddOption(std::wstring name, std::vector<std::wstring> values,
                                   std::wstring prefix, std::wstring separator) {
    if (prefix != L"-" && prefix != L"--" && prefix != L"/") prefix = L"-";
    if (separator != L" " && separator != L"=") separator = L" ";
    options_.push_back(
        {std::move(name), std::move(values), std::move(prefix), std::move(separator)});
}

std::wstring CommandLineBuilder::Text() const {
    std::wstring text = program_;
    for (const Option& option : options_) {
        text += L" " + option.prefix + option.name;
        for (const std::wstring& value : option.values) text += option.separator + value;
    }
    constexpr const wchar_t* kWhite = L" \t\r\n\v\f";
    const size_t begin = text.find_first_not_of(kWhite);
    if (begin == std::wstring::npos) return {};
    return text.substr(begin, text.find_last_not_of(kWhite) + 1 - begin);
}

std::wstring CommandLineBuilder::Quoted(const std::wstring& text) {
    if (text.size() >= 2 && text.front() == L'"' && text.back() == L'"') return text;
    return L"\"" + text + L"\"";
}
