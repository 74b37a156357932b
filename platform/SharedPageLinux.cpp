#include "platform/SharedPageLinux.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "platform/ErrnoLinux.h"

namespace platform {
namespace {

std::mutex registryLock;
SharedObject* registry = nullptr;

// Two bytes of the file behind a page carry locks. Both belong to the open file, so they go with
// the last process that has it open, however that ends.
constexpr off_t kGuardByte = 0;  // held while the page is made, joined or removed
constexpr off_t kUserByte = 1;   // shared by every user: exclusive means that there is no other

bool LockByte(int descriptor, bool wait, short type, off_t byte) {
    struct flock lock {};
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    lock.l_start = byte;
    lock.l_len = 1;
    int result;
    do {
        result = fcntl(descriptor, wait ? F_OFD_SETLKW : F_OFD_SETLK, &lock);
    } while (result != 0 && errno == EINTR);
    return result == 0;
}

const char* PageFolder() {
    if (access("/dev/shm", W_OK | X_OK) == 0) return "/dev/shm";
    const char* own = std::getenv("XDG_RUNTIME_DIR");
    return own != nullptr && own[0] == '/' ? own : "/tmp";
}

uint64_t HashName(WStringView name) {
    uint64_t hash = 0xCBF29CE484222325u;
    for (const WChar unit : name) {
        hash = (hash ^ (unit & 0xFFu)) * 0x100000001B3u;
        hash = (hash ^ (unit >> 8)) * 0x100000001B3u;
    }
    return hash;
}

// The hash of the name tells pages apart; the end of the name is for people who look.
bool FileName(SharedKind kind, WStringView name, char (&out)[sizeof(SharedObject::file)]) {
    char readable[41];
    const WStringView tail = name.substr(name.size() > 40 ? name.size() - 40 : 0);
    size_t length = 0;
    for (const WChar unit : tail) {
        const bool plain = (unit >= '0' && unit <= '9') || (Fold(unit) >= 'a' && Fold(unit) <= 'z');
        readable[length++] = plain ? static_cast<char>(unit) : '_';
    }
    readable[length] = 0;
    const int written =
        std::snprintf(out, sizeof(out), "%s/varnhold-%u-%c-%016llx-%s", PageFolder(),
                      static_cast<unsigned>(geteuid()), static_cast<char>(kind),
                      static_cast<unsigned long long>(HashName(name)), readable);
    return written > 0 && static_cast<size_t>(written) < sizeof(out);
}

bool InitialiseMutex(pthread_mutex_t* mutex) {
    pthread_mutexattr_t attributes;
    if (pthread_mutexattr_init(&attributes) != 0) return false;
    pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED);
    pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST);
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
    const bool made = pthread_mutex_init(mutex, &attributes) == 0;
    pthread_mutexattr_destroy(&attributes);
    return made;
}

// With the guard held: maps the page, empty for its first user.
Error MapPage(SharedObject* object, bool create, const struct stat& found) {
    const int descriptor = object->descriptor;
    const bool first = LockByte(descriptor, false, F_WRLCK, kUserByte);
    if (first && !create) {
        // Left behind by a process that was killed: nobody has this page.
        unlink(object->file);
        return kErrorFileNotFound;
    }
    if (first &&
        (ftruncate(descriptor, 0) != 0 || ftruncate(descriptor, sizeof(SharedPage)) != 0)) {
        return FromErrno(errno);
    }
    if (!first && found.st_size != sizeof(SharedPage)) return kErrorInvalidHandle;
    void* view =
        mmap(nullptr, sizeof(SharedPage), PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
    if (view == MAP_FAILED) return FromErrno(errno);
    object->page = static_cast<SharedPage*>(view);
    const bool ready = (!first || InitialiseMutex(&object->page->mutex)) &&
                       LockByte(descriptor, true, F_RDLCK, kUserByte);
    if (ready) return kErrorSuccess;
    munmap(view, sizeof(SharedPage));
    return kErrorGenFailure;
}

// One try; *retry when the file was removed by its last user between the opening and the guard.
Error TryOpenPage(SharedObject* object, bool create, bool* retry) {
    const int flags = O_RDWR | O_CLOEXEC | O_NOFOLLOW | (create ? O_CREAT : 0);
    object->descriptor = open(object->file, flags, 0600);
    if (object->descriptor < 0) return FromErrno(errno);
    struct stat found;
    Error error = kErrorGenFailure;
    if (LockByte(object->descriptor, true, F_WRLCK, kGuardByte) &&
        fstat(object->descriptor, &found) == 0) {
        *retry = found.st_nlink == 0;
        // A page that another user has laid under this name is not to be trusted.
        if (found.st_uid != geteuid()) {
            error = kErrorAccessDenied;
        } else if (!*retry) {
            error = MapPage(object, create, found);
        }
        LockByte(object->descriptor, false, F_UNLCK, kGuardByte);
    }
    if (error != kErrorSuccess) close(object->descriptor);
    return error;
}

Error OpenPage(SharedObject* object, bool create) {
    for (int tries = 0; tries < 1000; ++tries) {
        bool retry = false;
        const Error error = TryOpenPage(object, create, &retry);
        if (!retry) return error;
    }
    return kErrorGenFailure;
}

void ClosePage(SharedObject* object) {
    munmap(object->page, sizeof(SharedPage));
    if (LockByte(object->descriptor, true, F_WRLCK, kGuardByte) &&
        LockByte(object->descriptor, false, F_WRLCK, kUserByte)) {
        unlink(object->file);
    }
    close(object->descriptor);
}

// False when another thread owns the mutex, so that the page must stay.
bool ReleaseOwned(SharedObject* object) {
    const void* owner = object->owner.load();
    if (owner == nullptr) return true;
    if (owner != ThisThread()) return false;
    object->owner = nullptr;
    for (; object->depth > 0; --object->depth) pthread_mutex_unlock(&object->page->mutex);
    return true;
}

SharedObject* Lookup(const char* file) {
    SharedObject* object = registry;
    while (object != nullptr && std::strcmp(object->file, file) != 0) object = object->next;
    return object;
}

void Unlink(const SharedObject* object) {
    SharedObject** link = &registry;
    while (*link != object) link = &(*link)->next;
    *link = object->next;
}

}  // namespace

const void* ThisThread() noexcept {
    static thread_local char mark;
    return &mark;
}

Error JoinShared(SharedKind kind, const WChar* name, bool create, SharedObject** object) noexcept {
    char file[sizeof(SharedObject::file)];
    if (name == nullptr || !FileName(kind, name, file)) return kErrorInvalidName;
    const std::lock_guard<std::mutex> guard(registryLock);
    SharedObject* found = Lookup(file);
    if (found == nullptr) {
        found = new SharedObject;
        if (found == nullptr) return kErrorOutOfMemory;
        std::memcpy(found->file, file, sizeof(file));
        const Error error = OpenPage(found, create);
        if (error != kErrorSuccess) {
            delete found;
            return error;
        }
        found->next = registry;
        registry = found;
    }
    ++found->users;
    *object = found;
    return kErrorSuccess;
}

void AddSharedUser(SharedObject* object) noexcept {
    const std::lock_guard<std::mutex> guard(registryLock);
    ++object->users;
}

void DropShared(SharedObject* object) noexcept {
    const std::lock_guard<std::mutex> guard(registryLock);
    if (--object->users > 0 || !ReleaseOwned(object)) return;
    Unlink(object);
    ClosePage(object);
    delete object;
}

SharedObject* FindShared(const uint32_t* word) noexcept {
    const std::lock_guard<std::mutex> guard(registryLock);
    SharedObject* object = registry;
    while (object != nullptr && &object->page->word != word) object = object->next;
    return object;
}

}  // namespace platform
