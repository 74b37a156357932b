// SPDX-License-Identifier: MIT
// Sessions with the tool, as people type them, in files beside this one. A line begins with
//
//     $  words for the tool; '"' and "'" keep blanks together, <01> is a byte
//     %  a line for the shell, in which fbr is on the path
//     <  a line of its standard input
//     >  a line of its standard output, as text: exports in UTF-16 are decoded
//     !  a line of its standard error; one that ends in "..." tells its beginning
//     *  text that is in its output somewhere; the rest of that is not looked at then
//     ?  its exit status, when that is not 0
//     =  a file that is written, with the lines behind ":"; & a file that is shown; - one that must
//        be missing
//     ~8 (~16) FILE FROM TO, which puts bytes (units) in the place of others; ~@ FILE PLACE TO
//     cp FILE FILE; cmp FILE FILE FROM TO..., which must be the same but for those places
//     old FILE, which was last written hours ago, and was not since
//
// What came of the words must be what the file says. Blanks at the ends of lines do not count, and
// <text*9> is the text nine times. A file named linux_ is played there alone.
#include <sstream>

#include "tests/tool/Tool.h"

namespace {

using namespace tool;

std::vector<std::string> Words(const std::string& line) {
    std::vector<std::string> words;
    for (size_t at = line.find_first_not_of(' '); at < line.size();
         at = line.find_first_not_of(' ', at)) {
        const bool quoted = line[at] == '"' || line[at] == '\'';
        const size_t end = quoted ? line.find(line[at], at + 1) : line.find(' ', at);
        words.push_back(formats::WithBytes(line.substr(at + quoted, end - at - quoted)));
        at = end == line.npos ? end : end + quoted;
    }
    return words;
}

std::vector<std::string> Lines(std::string text, const std::string& mark = "") {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        if (!mark.empty()) line = mark + line;
        line.erase(line.find_last_not_of(" \r") + 1);
        lines.push_back(line);
    }
    return lines;
}

// Bytes that are no text as <01>.
std::string Shown(const std::string& bytes) {
    if (bytes.starts_with("\xFF\xFE")) return RegText(bytes);
    const bool reg = bytes.starts_with("Windows Registry Editor");
    std::string text;
    for (const char c : bytes) {
        char code[8];
        std::snprintf(code, sizeof code, "<%02x>", static_cast<uint8_t>(c));
        text += c >= 0 && c < ' ' && c != '\n' && !(reg && c == '\r') ? code : std::string(1, c);
    }
    return text;
}

class Sessions : public ToolTest, public testing::WithParamInterface<std::string> {
  protected:
    Sessions() { std::filesystem::current_path(dir_.Path()); }
    ~Sessions() override { std::filesystem::current_path(before_); }

    // Does what the lines from `at` on say, and moves behind them; what came of it.
    std::vector<std::string> Play(const std::vector<std::string>& lines, size_t* at) {
        const std::string line = lines[(*at)++];
        const std::string mark = line.substr(0, line.find(' '));
        const auto words = Words(line.substr(std::min(line.size(), mark.size())));
        std::string text;
        for (; *at < lines.size() && (lines[*at][0] == '<' || lines[*at][0] == ':'); ++*at)
            text += formats::WithBytes(lines[*at].substr(std::min<size_t>(lines[*at].size(), 2)),
                                       false) +
                    "\n";
        std::vector<std::string> came;
        if (mark == "$" || mark == "%") {
            const ProcessResult result = mark == "$" ? Fbr(words, text) : Shell(line.substr(1));
            came = Lines(Shown(result.out), "> ");
            for (const auto& told : Lines(result.err, "! ")) came.push_back(told);
            if (result.status != 0) came.push_back("? " + std::to_string(result.status));
        } else if (mark == "&") {
            came = Lines(Shown(Read(words[0])), "> ");
        } else if (mark == "=") {
            Write(words[0], text);
        } else if (mark == "-") {
            EXPECT_FALSE(Exists(words[0])) << words[0];
        } else if (mark == "~8" || mark == "~16") {
            Patch(words[0], words[1], words[2], mark == "~16");
        } else if (mark == "~@") {
            Write(words[0],
                  Read(words[0]).replace(std::stoul(words[1]), words[2].size(), words[2]));
        } else if (mark == "cp") {
            Write(words[1], Read(words[0]));
        } else if (mark == "cmp") {
            std::string one = Read(words[0]), other = Read(words[1]);
            for (size_t i = 2; i + 1 < words.size(); i += 2)
                for (size_t k = std::stoul(words[i]); k < std::stoul(words[i + 1]); ++k)
                    one[k] = other[k];
            EXPECT_TRUE(one == other);
        } else if (mark == "old") {
            const auto past = std::filesystem::last_write_time(dir_ / words[0]);
            if (past_ == std::filesystem::file_time_type())
                std::filesystem::last_write_time(dir_ / words[0],
                                                 past_ = past - std::chrono::hours(9));
            else
                EXPECT_EQ(past, std::exchange(past_, {}));
        } else {
            EXPECT_TRUE(mark.empty() || mark == "#") << mark;
        }
        return came;
    }
    static ProcessResult Shell(const std::string& line) {
        const std::string folder = Utf8(support::ProgramNamed("fbr").parent_path());
        return support::RunProcess("/bin/sh", {"-c", "PATH=" + folder + ":$PATH;" + line});
    }
    void Patch(const std::string& file, const std::string& from, const std::string& to, bool wide) {
        const auto bytes = [wide](const std::string& text) {
            std::string out;
            for (const char c : text) out += wide ? std::string({c, '\0'}) : std::string(1, c);
            return out;
        };
        std::string content = Read(file);
        const size_t at = content.find(bytes(from));
        ASSERT_NE(at, content.npos) << from;
        ASSERT_EQ(from.size(), to.size());
        Write(file, content.replace(at, bytes(to).size(), bytes(to)));
    }

  private:
    std::filesystem::file_time_type past_;
    const std::filesystem::path before_ = std::filesystem::current_path();
};

TEST_P(Sessions, GoAsTheyAreWritten) {
    const auto lines = Lines(formats::Source("tests/tool/sessions/" + GetParam() + ".txt"));
    ASSERT_FALSE(lines.empty());
    for (size_t at = 0; at < lines.size();) {
        SCOPED_TRACE("line " + std::to_string(at + 1) + ": " + lines[at]);
        auto came = Play(lines, &at);
        std::vector<std::string> written;
        for (; at < lines.size() && std::string(">!?*").find(lines[at][0]) != std::string::npos;
             ++at) {
            const std::string line = formats::WithBytes(lines[at], false);
            if (line[0] == '*') {
                std::string out;
                for (const std::string& told : came) out += told + "\n";
                EXPECT_NE(out.find(line.substr(2)), out.npos) << line << " is not in " << out;
                std::erase_if(came, [](const std::string& told) { return told[0] == '>'; });
                continue;
            }
            const size_t i = written.size();
            if (line.ends_with("...") && i < came.size() &&
                came[i].starts_with(line.substr(0, line.size() - 3)))
                came[i] = line;
            written.push_back(line);
        }
        EXPECT_EQ(came, written);
    }
}

std::vector<std::string> Names() {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(
             std::filesystem::path(ZRFS_SOURCE_DIR) / "tests/tool/sessions")) {
        names.push_back(entry.path().stem().string());
#ifdef _WIN32
        if (names.back().starts_with("linux_")) names.pop_back();
#endif
    }
    return names;
}

INSTANTIATE_TEST_SUITE_P(Of, Sessions, testing::ValuesIn(Names()),
                         [](const auto& param) { return param.param; });

}  // namespace
