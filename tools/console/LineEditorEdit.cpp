// SPDX-License-Identifier: MIT
#include <editline/readline.h>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <filesystem>
#include <fstream>
#include <iostream>

#include "tools/console/Console.h"
#include "tools/console/LineEditor.h"

namespace fbr {
namespace {

constexpr size_t kKeptLines = 1000;
constexpr int kLookAgain = 250;  // milliseconds, for a Ctrl-C that comes just before the wait

Complete g_complete;  // the library asks through plain functions
volatile std::sig_atomic_t g_dropped = 0;

char* NextMatch(const char* text, int state) {
    static std::vector<std::string> matches;
    static size_t next;
    if (state == 0) {
        const std::string line(rl_line_buffer, static_cast<size_t>(rl_point));
        matches = g_complete(line);
        next = 0;
    }
    return next < matches.size() ? strdup((text + matches[next++]).c_str()) : nullptr;
}

char** Matches(const char* text, int start, int end) {
    rl_attempted_completion_over = 1;  // no names of files
    return rl_completion_matches(text, NextMatch);
}

// A byte of standard input; -1 at its end, and where Ctrl-C drops the line.
int NextByte(FILE*) {
    pollfd input = {STDIN_FILENO, POLLIN, 0};
    while (g_dropped == 0) {
        const int ready = poll(&input, 1, kLookAgain);
        if (ready == 0 || (ready < 0 && errno == EINTR)) continue;
        unsigned char byte = 0;
        const ssize_t count = read(STDIN_FILENO, &byte, 1);
        if (count == 1) return byte;
        if (count == 0 || errno != EINTR) return -1;
    }
    return -1;
}

// While one stands Ctrl-C drops the line, unless the program was started to live through it.
class Dropping {
  public:
    Dropping() {
        g_dropped = 0;
        sigaction(SIGINT, nullptr, &before_);
        struct sigaction drop = {};
        drop.sa_handler = [](int) { g_dropped = 1; };
        if (before_.sa_handler != SIG_IGN) sigaction(SIGINT, &drop, nullptr);
    }
    ~Dropping() { sigaction(SIGINT, &before_, nullptr); }
    Dropping(const Dropping&) = delete;
    Dropping& operator=(const Dropping&) = delete;

  private:
    struct sigaction before_ = {};
};

// Empty without a home.
std::filesystem::path HistoryFile() {
    const char *home = std::getenv("HOME"), *state = std::getenv("XDG_STATE_HOME");
    if (home == nullptr || *home == 0) return {};
    const bool given = state != nullptr && *state == '/';
    const auto folder =
        given ? std::filesystem::path(state) : std::filesystem::path(home) / ".local" / "state";
    return folder / "fbr" / "history";
}

int OpenOwn(const std::filesystem::path& file, int flags) {
    return open(file.c_str(), flags | O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
}

// In one write, so that lines of two sessions do not mix. Without a history all else works.
void Keep(const std::string& line) {
    const auto file = HistoryFile();
    const int descriptor = file.empty() ? -1 : OpenOwn(file, O_APPEND);
    if (descriptor < 0) return;
    const std::string text = line + '\n';
    [[maybe_unused]] const ssize_t written = write(descriptor, text.data(), text.size());
    close(descriptor);
}

// A file that grew past its lines is put in order when a session begins.
void Shorten(const std::filesystem::path& file, const std::deque<std::string>& lines) {
    const std::filesystem::path fresh = file.string() + ".new";
    const int descriptor = OpenOwn(fresh, O_TRUNC);
    if (descriptor < 0) return;
    std::string text;
    for (const std::string& line : lines) text += line + '\n';
    const bool whole =
        write(descriptor, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    std::error_code ignored;
    if (close(descriptor) == 0 && whole)
        std::filesystem::rename(fresh, file, ignored);
    else
        std::filesystem::remove(fresh, ignored);
}

void LoadHistory() {
    const auto file = HistoryFile();
    if (file.empty()) return;
    std::error_code ignored;
    std::filesystem::create_directories(file.parent_path(), ignored);
    std::deque<std::string> lines;
    size_t all = 0;
    std::ifstream in(file);
    for (std::string line; std::getline(in, line); ++all) {
        lines.push_back(line);
        if (lines.size() > kKeptLines) lines.pop_front();
    }
    for (const std::string& line : lines) add_history(line.c_str());
    if (all > kKeptLines) Shorten(file, lines);
}

}  // namespace

LineEditor::LineEditor(Complete complete) {
    g_complete = std::move(complete);
    rl_readline_name = const_cast<char*>("fbr");
    rl_attempted_completion_function = Matches;
    rl_completer_word_break_characters = const_cast<char*>(" \t");
    rl_completion_append_character = 0;
    rl_getc_function = NextByte;
    using_history();
    if (InputIsTerminal()) LoadHistory();
}

LineEditor::~LineEditor() {
    clear_history();
    g_complete = {};
}

std::optional<std::string> LineEditor::Read(const std::string& prompt) {
    if (!InputIsTerminal()) {
        std::string line;
        if (!std::getline(std::cin, line)) return {};
        return line;
    }
    const Dropping dropping;
    char* read = readline(prompt.c_str());
    if (g_dropped != 0) {
        std::free(read);
        std::cout << std::endl;
        return "";
    }
    if (read == nullptr) return {};
    std::string line = read;
    std::free(read);
    if (!line.empty()) {
        add_history(line.c_str());
        Keep(line);
    }
    return line;
}

}  // namespace fbr
