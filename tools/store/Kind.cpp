// SPDX-License-Identifier: MIT
#include "tools/store/Kind.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <utility>

#include "platform/Pipe.h"
#include "tools/console/FileWriter.h"
#include "tools/format/Text.h"
#include "tools/store/Session.h"
#include "tools/store/Status.h"

namespace fbr {
namespace {

constexpr std::string_view kCluster = "etcd://";
constexpr size_t kLookedAt = 512;
constexpr uintmax_t kLittleRoom = 1u << 20;
constexpr size_t kMore = 64 * 1024;  // what a new store takes, or a large change
constexpr const char* kDiskFull = "the disk is full; make room on it";

std::string FirstBytes(std::ifstream& in) {
    std::string bytes(kLookedAt, '\0');
    in.read(bytes.data(), kLookedAt);
    bytes.resize(static_cast<size_t>(in.gcount()));
    return bytes;
}

// Text of any encoding as far as it is ASCII, without the mark and blanks in front.
std::string Ascii(const std::string& bytes) {
    std::string text;
    for (const char c : bytes) {
        const bool blank = text.empty() && (c == ' ' || c == '\t' || c == '\r' || c == '\n');
        if (c > 0 && !blank) text += c;
    }
    return text;
}

bool EndsIn(const std::filesystem::path& file, std::initializer_list<WStringView> endings) {
    const std::u8string text = file.extension().u8string();
    const WString own(text.begin(), text.end());
    return std::any_of(endings.begin(), endings.end(), [&own](WStringView ending) {
        return platform::CompareFolded(own, ending) == 0;
    });
}

// By its name: one that cannot be read is not passed over without a word.
bool IsExport(const std::filesystem::path& file) {
    return EndsIn(file, {WTEXT(".reg"), WTEXT(".jsonl")});
}

// True where `path` begins with that, in any case.
bool BeginsWith(const std::string& path, WStringView with) {
    WString wide;
    return FromStrictUtf8(path, wide) &&
           platform::CompareFolded(WStringView(wide).substr(0, with.size()), with) == 0;
}

// What people call the keys of the live registry, and what the system calls them.
std::string LiveNameOf(const std::string& path) {
    constexpr std::pair<const char*, const char*> kRoots[] = {
        {"HKEY_LOCAL_MACHINE", "\\registry\\machine"},
        {"HKLM", "\\registry\\machine"},
        {"HKEY_USERS", "\\registry\\user"},
        {"HKU", "\\registry\\user"},
        {"HKEY_CURRENT_USER", "\\registry\\user\\SID"},
        {"HKCU", "\\registry\\user\\SID"},
        {"HKEY_CLASSES_ROOT", "\\registry\\machine\\software\\classes"},
        {"HKCR", "\\registry\\machine\\software\\classes"}};
    const size_t end = std::min(path.find('\\'), path.size());
    for (const auto& [name, live] : kRoots)
        if (BeginsWith(path.substr(0, end), platform::FromUtf8(name)) && end == std::strlen(name))
            return live + path.substr(end);
    return "";
}

// Empty where that is not what was meant.
std::string HowTheLiveIsNamed(const StoreName& name) {
    const std::string live = LiveNameOf(name.path);
    if (!live.empty()) return "; that key of the live registry is called " + live;
    const bool meant =
        name.method == FS_VR_METHOD_NATIVE || BeginsWith(name.path, WTEXT("\\registry"));
    if (!meant || IsLivePath(name.path)) return "";
    return "; a path of the live registry begins with \\registry\\machine\\ or \\registry\\user\\";
}

std::string MissingLiveKey(const StoreName& name) {
    std::string how = HowTheLiveIsNamed(name);
    if (!how.empty()) return how;
    return "; fbr ls " + name.path.substr(0, name.path.rfind('\\')) + " tells which keys there are";
}

// The folder that the file is to stand in where it is missing; else empty.
std::string MissingFolder(const std::filesystem::path& file) {
    std::error_code error;
    const auto folder = file.parent_path();
    if (folder.empty() || std::filesystem::exists(folder, error) || error) return "";
    const std::u8string text = folder.u8string();
    return {text.begin(), text.end()};
}

std::string ServerOf(const StoreName& name) {
    return name.path.substr(0, name.path.find('|'));
}

bool IsBehindServer(const StoreName& name) {
    return name.path.find('|') != std::string::npos && ServerOf(name) != "!REMOTE";
}

// A path with a server in it has one "|", with something on both sides.
bool NamesNoServer(const StoreName& name) {
    const size_t bar = name.path.find('|');
    if (bar == std::string::npos) return name.method == FS_VR_METHOD_REMOTE_CONTAINER;
    return bar == 0 || bar + 1 == name.path.size() ||
           name.path.find('|', bar + 1) != name.path.npos;
}
constexpr const char* kHowServersAreNamed =
    "; a store behind a server is named SERVER|PATH: the name that fbr serve was given, and the "
    "file there";

std::string WhyServerFails(const StoreName& name) {
    WString pipe;
    FromStrictUtf8(ServerOf(name), pipe);
    const platform::Handle server =
        platform::OpenPipe(pipe.c_str(), platform::Disclosure::Identify);
    if (platform::IsValid(server)) {
        platform::ClosePipe(server);
        return name.method == FS_VR_METHOD_CLUSTER
                   ? "; the server cannot: what it writes tells what the cluster says"
                   : "; the server cannot: --method remote-container is for a container there, "
                     "offline "
                     "for a hive";
    }
    if (platform::LastError() == platform::kErrorAccessDenied)
        return "; the server at " + ServerOf(name) + " is another user's";
    return "; no server answers at " + ServerOf(name) + ": fbr serve is one";
}

bool MayBeWritten(const std::filesystem::path& file) {
    return static_cast<bool>(std::ofstream(file, std::ios::binary | std::ios::app | std::ios::in));
}

std::filesystem::path FolderOf(const std::filesystem::path& file) {
    std::error_code ignored;
    return std::filesystem::absolute(file, ignored).parent_path();
}

// Where no room is left on the disk for that many more bytes.
bool IsFull(const std::filesystem::path& file, uintmax_t more = kLittleRoom) {
    std::error_code error;
    const auto room = std::filesystem::space(FolderOf(file), error);
    return !error && room.available < more;
}

bool IsHiveMethod(FBR_METHOD method) {
    return method == FS_VR_METHOD_OFFLINE || method == FS_VR_METHOD_HIVE;
}

const char* WordsOf(Kind kind) {
    switch (kind) {
        case Kind::kFolder:
            return "a folder";
        case Kind::kExportFolder:
            return "a folder of exports";
        case Kind::kEmpty:
            return "empty";
        case Kind::kOdd:
            return "no regular file";
        case Kind::kHive:
            return "a hive";
        case Kind::kReg:
            return "a .reg file";
        case Kind::kJsonLines:
            return "a file of JSON lines";
        default:
            return "";
    }
}

}  // namespace

size_t ClusterAt(const std::string& path) {
    const size_t bar = path.rfind('|');
    const size_t at = bar == std::string::npos ? 0 : bar + 1;
    return path.compare(at, kCluster.size(), kCluster) == 0 ? at : std::string::npos;
}

bool IsLivePath(const std::string& path) {
    constexpr WStringView kRoot = WTEXT("\\registry\\");
    return path.size() > kRoot.size() && BeginsWith(path, kRoot);
}

std::vector<std::filesystem::path> ExportsIn(const std::filesystem::path& folder) {
    std::vector<std::filesystem::path> files;
    std::error_code error;
    for (std::filesystem::directory_iterator at(folder, error), end; !error && at != end;
         at.increment(error))
        if (IsExport(at->path())) files.push_back(at->path());
    std::sort(files.begin(), files.end());
    return files;
}

Kind KindOf(const std::filesystem::path& file) {
    std::error_code error;
    if (!std::filesystem::exists(file, error)) return error ? Kind::kUnreadable : Kind::kMissing;
    if (std::filesystem::is_directory(file, error)) {
        const std::filesystem::directory_iterator entries(file, error);
        if (error) return Kind::kUnreadable;
        return ExportsIn(file).empty() ? Kind::kFolder : Kind::kExportFolder;
    }
    if (!std::filesystem::is_regular_file(file, error)) return Kind::kOdd;
    std::ifstream in(file, std::ios::binary);
    if (!in) return Kind::kUnreadable;
    const std::string bytes = FirstBytes(in);
    if (bytes.empty()) return Kind::kEmpty;
    if (bytes.starts_with("regf")) return Kind::kHive;
    const std::string text = Ascii(bytes);
    if (text.starts_with("Windows Registry Editor") || text.starts_with("REGEDIT4"))
        return Kind::kReg;
    const bool object = text.starts_with('{') && text.find("\"key\"") != std::string::npos;
    return object ? Kind::kJsonLines : Kind::kUnknown;
}

StoreName Recognise(const std::string& path) {
    if (const size_t at = ClusterAt(path); at != std::string::npos)
        return {path.substr(0, at) + path.substr(at + kCluster.size()), FS_VR_METHOD_CLUSTER};
    const Session* session = Session::Current();
    if (const auto open = session != nullptr ? session->Named(path) : std::nullopt) return *open;
    StoreName name{path, FS_VR_METHOD_TARN};
    if (path.find('|') != std::string::npos) return name;
    const auto file = FileOf(name);
    const Kind kind = file ? KindOf(*file) : Kind::kMissing;
    if (kind == Kind::kMissing && IsLivePath(path)) name.method = FS_VR_METHOD_NATIVE;
    if (kind == Kind::kHive) name.method = FS_VR_METHOD_OFFLINE;
    name.isText = kind == Kind::kReg || kind == Kind::kJsonLines || kind == Kind::kExportFolder;
    return name;
}

StoreName RecogniseNew(const std::string& path) {
    StoreName name = Recognise(path);
    const auto file = FileOf(name);
    const bool isNew = name.method == FS_VR_METHOD_TARN && path.find('|') == std::string::npos &&
                       file && KindOf(*file) == Kind::kMissing;
    if (!isNew) return name;
    if (IsExport(*file))
        throw StoreError(fmt::format("cannot make store {0}: its name is that of a file of text, "
                                     "which fbr export STORE -o {0} writes",
                                     path),
                         FSSTATUS_INVALID_NAME);
    if (EndsIn(*file, {WTEXT(".hiv"), WTEXT(".hive")})) name.method = FS_VR_METHOD_OFFLINE;
    return name;
}

std::string KindInWords(const StoreName& name) {
    const auto file = FileOf(name);
    return file ? WordsOf(KindOf(*file)) : "";
}

std::string WhyItDoesNotOpen(const StoreName& name) {
    if (NamesNoServer(name)) return kHowServersAreNamed;
    const auto file = FileOf(name);
    if (name.method == FS_VR_METHOD_CLUSTER && !IsBehindServer(name))
        return "; no member of the cluster does it: the line above tells what they say";
    if (!file) return IsBehindServer(name) ? WhyServerFails(name) : MissingLiveKey(name);
    if (IsBehindServer(name))
        return "; a store behind a server takes --method: remote-container, or offline for a hive";
    const Kind kind = KindOf(*file);
    switch (kind) {
        case Kind::kMissing: {
            const std::string folder = MissingFolder(*file);
            std::string live = HowTheLiveIsNamed(name);
            if (!live.empty()) return live;
            if (IsExport(*file)) return "; fbr export STORE -o " + name.path + " writes one";
            return folder.empty() ? "; fbr create makes an empty one"
                                  : "; there is no folder " + folder;
        }
        case Kind::kUnreadable:
            return "; it may not be read: ask its owner for the right";
        case Kind::kEmpty:
            return "; it is empty: remove it, and fbr create makes a store of that name";
        case Kind::kFolder:
            return "; it is a folder with no .reg and no .jsonl file in it: name a file";
        case Kind::kHive:
            if (!IsHiveMethod(name.method)) return "; it is a hive: open it without --method";
            return "; it is a hive that is damaged: take a copy of it from elsewhere";
        case Kind::kUnknown:
            if (IsHiveMethod(name.method)) return "; it is no hive: open it without --method";
            return "; it is no container, hive, .reg file or file of JSON lines, or one that is "
                   "damaged: fbr info tells more";
        case Kind::kOdd:
            return "; it is no regular file: name a file";
        default:
            return std::string("; it is ") + WordsOf(kind) + ": open it without --method";
    }
}

std::string WhyItDoesNotOpen(const StoreName& name, FBR_STATUS status) {
    if (NamesNoServer(name)) return kHowServersAreNamed;
    const auto file = FileOf(name);
    const bool isUnnamed = status == FSSTATUS_INVALID_NAME || name.path.empty();
    if (name.method == FS_VR_METHOD_CLUSTER && isUnnamed)
        return "; a store on a cluster is named etcd://HOST:PORT,.../PREFIX";
    if (name.method == FS_VR_METHOD_CLUSTER && status == FSSTATUS_INVALID_PARAMETER &&
        !IsBehindServer(name))
        return "; the line above tells which setting is none";
    if (name.method == FS_VR_METHOD_CLUSTER && status == FSSTATUS_NOT_FOUND)
        return "; fbr create makes an empty one";
    const bool remote = IsBehindServer(name);
    const std::string folder = file ? MissingFolder(*file) : "";
    if (remote && status == FSSTATUS_INVALID_PARAMETER)
        return "; the server refuses it: one with --root opens files below that folder alone, "
               "with a dot in their names";
    if (name.method == FS_VR_METHOD_HIVE && name.path.find('!') == std::string::npos)
        return "; a hive is mounted as FILE!NAME, and by Windows alone; --method offline opens "
               "FILE itself";
    if (status == FSSTATUS_PATH_NOT_FOUND && remote) return "; its folder is not at the server";
    if (status == FSSTATUS_PATH_NOT_FOUND && !folder.empty())
        return "; there is no folder " + folder + ": make it first";
    return Advice(status, name.method);
}

// What the system says to a file beside that one which is a little larger than so many bytes.
std::error_code TryBeside(const std::filesystem::path& file, uint64_t size) {
    try {
        FileWriter beside(file);
        beside.Reserve(size + kMore);
        beside.Write(std::string(kMore, '\0').data(), kMore);
        return {};
    } catch (const std::system_error& error) {
        return error.code();
    }
}

std::string InWords(const std::error_code& code, const std::filesystem::path& file) {
    const bool large = code == std::errc::file_too_large;
    return (large ? "a file there may not become that large" : code.message()) +
           WhatToDo(code, file);
}

std::string WhyNoFileIsMade(const std::filesystem::path& file) {
    const std::error_code code = TryBeside(file, 0);
    if (code) return InWords(code, file);
    return "; nothing may be made by that name in its folder: ask the owner for the right";
}

// Why that file cannot be larger than it is; empty where nothing is known.
std::string WhyNoRoom(const std::filesystem::path& file) {
    std::error_code error;
    if (!std::filesystem::is_regular_file(file, error)) return "";
    if (IsFull(file)) return kDiskFull;
    const uintmax_t size = std::filesystem::file_size(file, error);
    const std::error_code code = error ? error : TryBeside(file, size);
    // Whoever may write the file need not have the right to make one beside it.
    const bool tells = code && code != std::errc::permission_denied &&
                       code != std::errc::operation_not_permitted &&
                       code != std::errc::read_only_file_system;
    return tells ? InWords(code, file) : "";
}

std::string WhyItIsNotMade(const StoreName& name) {
    const auto file = FileOf(name);
    const Kind kind = file ? KindOf(*file) : Kind::kUnknown;
    std::error_code error;
    const bool there = kind == Kind::kUnreadable && std::filesystem::exists(*file, error);
    if (there || (kind != Kind::kMissing && kind != Kind::kUnreadable))
        return WhyItDoesNotOpen(name);
    if (IsFull(*file)) return kDiskFull;
    const auto folder = std::filesystem::absolute(*file, error).parent_path();
    if (!error && !std::filesystem::exists(folder, error) && !error)
        return "; there is no folder to make it in";
    return WhyNoFileIsMade(*file);
}

void ExpectFolder(const StoreName& name) {
    const auto file = FileOf(name);
    std::error_code error;
    if (!file || file->parent_path().empty() ||
        std::filesystem::is_directory(file->parent_path(), error))
        return;
    throw StoreError(
        fmt::format("cannot open store {}: {}{}", name.Shown(), StatusText(FSSTATUS_PATH_NOT_FOUND),
                    WhyItDoesNotOpen(name, FSSTATUS_PATH_NOT_FOUND)),
        FSSTATUS_PATH_NOT_FOUND);
}

void ExpectChangeable(const std::string& file) {
    if (MayBeWritten(FilePath(file))) return;
    throw StoreError(fmt::format("cannot change {}: {}; its file may not be written: ask its owner "
                                 "for the right",
                                 file, StatusText(FSSTATUS_ACCESS_DENIED)),
                     FSSTATUS_ACCESS_DENIED);
}

// A hive is saved as a whole new file, which then takes the place of the old one.
std::string WhyHiveIsNotSaved(const std::filesystem::path& file) {
    std::error_code error;
    const uintmax_t size = std::filesystem::file_size(file, error);
    if (IsFull(file, kLittleRoom + (error ? 0 : size)))
        return "the disk has no room for the new file that a hive is saved as; make room on it";
    if (std::string why = WhyNoRoom(file); !why.empty()) return why;
    return "; a hive is saved as a new file in its folder, which must take one of its size";
}

std::string WhyItFailed(const StoreName& name) {
    std::error_code error;
    const auto file = FileOf(name);
    if (name.method == FS_VR_METHOD_CLUSTER && !IsBehindServer(name))
        return "; the line above tells what its members say";
    if (!file) return "; the server or the system tells no more";
    if (name.method == FS_VR_METHOD_OFFLINE) return WhyHiveIsNotSaved(*file);
    if (!MayBeWritten(*file)) return "its file may not be written; ask its owner for the right";
    if (std::string why = WhyNoRoom(*file); !why.empty()) return why;
    const auto room = std::filesystem::space(FolderOf(*file), error).available;
    return fmt::format(
        "; {}fbr check tells whether the file is sound",
        error ? ""
              : fmt::format("the disk has {} bytes left: make room if the change needs more; ",
                            room));
}

}  // namespace fbr
