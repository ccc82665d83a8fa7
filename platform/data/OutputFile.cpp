#include "platform/data/OutputFile.h"

#include "platform/core/VxWorkArea.h"
#include "platform/data/ParallelGzip.h"
#include "platform/data/WriteAhead.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace vxfield {
namespace {

KcString errorText(int err)
{
    return std::strerror(err);
}

std::string folderOf(const std::string &path)
{
    const size_t slash = path.find_last_of('/');
    if (slash == std::string::npos)
        return ".";
    if (slash == 0)
        return "/";
    return path.substr(0, slash);
}

// Links the unnamed file open as fd in under name: through /proc, which
// needs no privilege, else through the descriptor itself (which needs
// CAP_DAC_READ_SEARCH). 0 or errno.
int linkDescriptor(int fd, const std::string &name)
{
    char proc[64];
    std::snprintf(proc, sizeof proc, "/proc/self/fd/%d", fd);
    if (linkat(AT_FDCWD, proc, AT_FDCWD, name.c_str(), AT_SYMLINK_FOLLOW) == 0)
        return 0;
    const int err = errno;
    if (err == EEXIST)
        return err;
    if (linkat(fd, "", AT_FDCWD, name.c_str(), AT_EMPTY_PATH) == 0)
        return 0;
    return err;
}

// A name beside path that no one uses: ".NAME.vx-PID-N".
std::string temporaryName(const std::string &path, unsigned attempt)
{
    static std::atomic<unsigned> counter{0};
    const size_t slash = path.find_last_of('/');
    const std::string folder = slash == std::string::npos ? "" : path.substr(0, slash + 1);
    const std::string base = slash == std::string::npos ? path : path.substr(slash + 1);
    char tail[64];
    std::snprintf(tail, sizeof tail, ".vx-%ld-%u-%u", static_cast<long>(getpid()),
                  counter.fetch_add(1), attempt);
    return folder + "." + base + tail;
}

} // namespace

OutputFile::~OutputFile()
{
    discard();
}

bool OutputFile::open(const char *name, KcString &why)
{
    discard();
    path = name ? name : "";
    written = 0;
    auto failed = [&](int err) {
        why = "cannot open for writing: " + errorText(err);
        path.clear();
        return false;
    };

    // O_NONBLOCK: a FIFO without a reader fails here instead of blocking.
    // Read access too, for mapRoom(); a file that may be written but not
    // read is written the plain way.
    bool replace = false;
    int f = ::open(path.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    if (f < 0 && errno == EACCES)
        f = ::open(path.c_str(), O_WRONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    if (f >= 0) {
        struct stat st;
        const bool isFile = fstat(f, &st) == 0 && S_ISREG(st.st_mode);
        if (isFile && st.st_nlink == 1) {
            fcntl(f, F_SETFL, fcntl(f, F_GETFL) & ~O_NONBLOCK);
            fd = f;
            mode = InPlace;
            return true;
        }
        ::close(f);
        if (!isFile) {
            why = "cannot open for writing: not a regular file";
            path.clear();
            return false;
        }
        replace = true;
    } else if (errno == ELOOP) {
        replace = true; // a symbolic link: replaced, its target left alone
    } else if (errno != ENOENT) {
        return failed(errno);
    }

    f = ::open(folderOf(path).c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0666);
    if (f >= 0) {
        fd = f;
        mode = replace ? Replacing : Unnamed;
        return true;
    }
    // EOPNOTSUPP: the file system has no unnamed files; EISDIR: the kernel
    // has none.
    if (errno != EOPNOTSUPP && errno != EISDIR)
        return failed(errno);
    if (replace && unlink(path.c_str()) != 0)
        return failed(errno);
    f = ::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (f < 0)
        return failed(errno);
    fd = f;
    mode = Named;
    return true;
}

int OutputFile::writeAt(size_t pos, const void *data, size_t n)
{
    if (fd < 0)
        return EBADF;
    if (pos + n > written)
        return EINVAL;
    const char *p = static_cast<const char *>(data);
    while (n > 0) {
        const ssize_t w = ::pwrite(fd, p, n, static_cast<off_t>(pos));
        if (w < 0 && errno == EINTR)
            continue;
        if (w <= 0)
            return w < 0 ? errno : EIO;
        p += w;
        pos += static_cast<size_t>(w);
        n -= static_cast<size_t>(w);
    }
    return 0;
}

unsigned char *OutputFile::mapRoom(size_t n)
{
    const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    if (fd < 0 || n == 0 || written % page != 0)
        return nullptr;
    const off_t from = static_cast<off_t>(written);
    const off_t end = static_cast<off_t>(written + n);
    struct stat st;
    if (fstat(fd, &st) != 0 || (st.st_size != end && ftruncate(fd, end) != 0))
        return nullptr;
    void *map = mmap(nullptr, n, PROT_READ | PROT_WRITE, MAP_SHARED, fd, from);
    if (map == MAP_FAILED)
        return nullptr;
    // Over an earlier file, the first store into a page that is not cached
    // would read its old bytes from the disk: where most are not cached,
    // the room is zeroed first, which changes the block map and reads
    // nothing. Zeroed, the room is allocated as well.
    bool allocated = false;
    const size_t old = st.st_size > from ? std::min(n, static_cast<size_t>(st.st_size - from)) : 0;
    if (old > 0) {
        std::vector<unsigned char> resident((old + page - 1) / page);
        size_t cached = 0;
        if (mincore(map, old, resident.data()) == 0)
            for (unsigned char r : resident)
                cached += r & 1;
        if (cached < resident.size() / 2)
            allocated = fallocate(fd, FALLOC_FL_ZERO_RANGE, from, static_cast<off_t>(n)) == 0;
    }
    if (!allocated && fallocate(fd, 0, from, static_cast<off_t>(n)) != 0) {
        munmap(map, n);
        return nullptr;
    }
    written += n;
    return static_cast<unsigned char *>(map);
}

int OutputFile::keepMapPrivate(unsigned char *map, size_t n, size_t at)
{
    if (fd < 0)
        return EBADF;
    // The shared pages leave for the page cache, and the private map reads
    // them from there: nothing is copied unless it is stored into later.
    void *again = mmap(map, n, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_FIXED, fd,
                       static_cast<off_t>(at));
    return again == map ? 0 : errno;
}

int OutputFile::cut(size_t n)
{
    if (fd < 0)
        return EBADF;
    if (ftruncate(fd, static_cast<off_t>(n)) != 0)
        return errno;
    written = n;
    return 0;
}

int OutputFile::write(const void *data, size_t n)
{
    if (fd < 0)
        return EBADF;
    const char *p = static_cast<const char *>(data);
    while (n > 0) {
        const ssize_t w = ::write(fd, p, std::min<size_t>(n, size_t(1) << 30));
        if (w < 0) {
            if (errno == EINTR)
                continue;
            return errno;
        }
        if (w == 0)
            return EIO;
        p += w;
        n -= static_cast<size_t>(w);
        written += static_cast<size_t>(w);
    }
    return 0;
}

int OutputFile::writeUncached(const void *data, size_t n)
{
    const char *p = static_cast<const char *>(data);
    const size_t head = (kUncachedAlignment - written % kUncachedAlignment) % kUncachedAlignment;
    if (directRefused || fd < 0 || n < head + kUncachedAlignment ||
        (reinterpret_cast<uintptr_t>(p) + head) % kUncachedAlignment != 0)
        return write(p, n);
    if (const int err = write(p, head))
        return err;
    const size_t middle = (n - head) / kUncachedAlignment * kUncachedAlignment;
    if (const int err = writeDirect(p + head, middle))
        return err;
    return write(p + head + middle, n - head - middle);
}

// Aligned bytes at an aligned position; O_DIRECT is set for them and
// cleared again, so that the file's other writes stay ordinary ones.
int OutputFile::writeDirect(const char *p, size_t n)
{
    const int flags = fcntl(fd, F_GETFL);
    if (flags < 0 || fcntl(fd, F_SETFL, flags | O_DIRECT) != 0) {
        directRefused = true;
        return write(p, n);
    }
    int err = 0;
    while (n > 0) {
        const ssize_t w = ::write(fd, p, std::min<size_t>(n, size_t(1) << 30));
        if (w < 0 && errno == EINTR)
            continue;
        if (w < 0 && errno == EINVAL) {
            // The file system or the device wants another alignment.
            directRefused = true;
            break;
        }
        if (w < 0) {
            err = errno;
            break;
        }
        if (w == 0) {
            err = EIO;
            break;
        }
        p += w;
        n -= static_cast<size_t>(w);
        written += static_cast<size_t>(w);
        if (static_cast<size_t>(w) % kUncachedAlignment != 0) {
            directRefused = true; // a short write left the position unaligned
            break;
        }
    }
    if (fcntl(fd, F_SETFL, flags) != 0 && err == 0)
        err = errno;
    if (err == 0 && n > 0)
        err = write(p, n);
    return err;
}

bool OutputFile::linkUnnamed(KcString &why)
{
    int err = mode == Unnamed ? linkDescriptor(fd, path) : EEXIST;
    if (err == 0)
        return true;
    if (err != EEXIST) {
        why = "cannot put the file in place: " + errorText(err);
        return false;
    }
    // The name is taken: link under a temporary name, then rename over it,
    // which replaces the name in one step.
    for (unsigned attempt = 0; attempt < 100; ++attempt) {
        const std::string temporary = temporaryName(path, attempt);
        err = linkDescriptor(fd, temporary);
        if (err == EEXIST)
            continue;
        if (err != 0)
            break;
        if (rename(temporary.c_str(), path.c_str()) == 0)
            return true;
        err = errno;
        unlink(temporary.c_str());
        break;
    }
    why = "cannot put the file in place: " + errorText(err);
    return false;
}

bool OutputFile::commit(KcString &why)
{
    if (fd < 0) {
        why = "the file is not open";
        return false;
    }
    bool ok = true;
    if (mode == InPlace && ftruncate(fd, static_cast<off_t>(written)) != 0) {
        why = "cannot cut the file to its length: " + errorText(errno);
        ok = false;
    }
    if (ok && (mode == Unnamed || mode == Replacing))
        ok = linkUnnamed(why);
    if (!ok) {
        discard();
        return false;
    }
    const int closed = ::close(fd);
    const int err = errno;
    fd = -1;
    if (closed != 0) {
        // The name now holds a file that may lack its last bytes.
        unlink(path.c_str());
        why = "cannot close the file: " + errorText(err);
        mode = Closed;
        return false;
    }
    mode = Closed;
    return true;
}

bool OutputFile::commitAs(const char *name, KcString &why)
{
    if (!unnamed()) {
        why = "the file already has a name";
        discard();
        return false;
    }
    path = name ? name : "";
    return commit(why);
}

void OutputFile::discard()
{
    // An unnamed file disappears with its descriptor. A named one is removed
    // while its name still holds it: another save may have put its own file
    // there meanwhile.
    if (fd >= 0 && (mode == InPlace || mode == Named)) {
        struct stat mine, named;
        if (fstat(fd, &mine) == 0 && lstat(path.c_str(), &named) == 0 &&
            mine.st_dev == named.st_dev && mine.st_ino == named.st_ino)
            unlink(path.c_str());
    }
    if (fd >= 0)
        ::close(fd);
    fd = -1;
    mode = Closed;
}

SaveProgress::SaveProgress(const char *path) : owned(!VxWorkArea::instance()->isShowingProgress())
{
    VxWorkArea *work = VxWorkArea::instance();
    if (owned)
        work->startProgress();
    const std::string name = path ? path : "";
    const size_t slash = name.find_last_of('/');
    work->setStatus(
        ("saving " + (slash == std::string::npos ? name : name.substr(slash + 1))).c_str());
}

SaveProgress::~SaveProgress()
{
    if (owned)
        VxWorkArea::instance()->endProgress();
}

bool SaveProgress::update(double fraction) const
{
    VxWorkArea *work = VxWorkArea::instance();
    work->setProgress(static_cast<float>(fraction));
    return !work->wasInterrupted();
}

bool writeRaw(OutputFile &out, const std::vector<ByteRange> &parts, const KeepGoing &keepGoing,
              KcString &why)
{
    // Pieces small enough that an interrupt is noticed within milliseconds,
    // large enough that the calls cost nothing.
    const size_t piece = size_t(8) << 20;
    size_t total = 0;
    for (const ByteRange &p : parts)
        total += p.size;
    size_t done = 0;
    if (keepGoing && !keepGoing(0.0)) {
        why = "interrupted";
        return false;
    }
    for (const ByteRange &p : parts) {
        const char *data = static_cast<const char *>(p.data);
        const bool uncached = p.size >= kUncachedMinBytes;
        for (size_t offset = 0; offset < p.size; offset += piece) {
            const size_t n = std::min(piece, p.size - offset);
            if (const int err =
                    uncached ? out.writeUncached(data + offset, n) : out.write(data + offset, n)) {
                why = "cannot write: " + errorText(err);
                return false;
            }
            done += n;
            if (keepGoing && !keepGoing(total ? static_cast<double>(done) / total : 1.0)) {
                why = "interrupted";
                return false;
            }
        }
    }
    return true;
}

bool writeFile(const char *path, const std::vector<ByteRange> &plain,
               const std::vector<ByteRange> &gzipped, KcString &why)
{
    size_t plainBytes = 0;
    size_t gzippedBytes = 0;
    for (const ByteRange &p : plain)
        plainBytes += p.size;
    for (const ByteRange &p : gzipped)
        gzippedBytes += p.size;
    // Compressing a byte takes far longer than writing one: the share of the
    // progress bar follows the bytes of each phase, compressed ones weighted.
    const double plainWork = static_cast<double>(plainBytes);
    const double gzippedWork = 20.0 * static_cast<double>(gzippedBytes);
    const double plainShare =
        plainWork + gzippedWork > 0 ? plainWork / (plainWork + gzippedWork) : 1.0;

    SaveProgress progress(path);
    WriteAhead::yield(path);
    OutputFile out;
    if (!out.open(path, why))
        return false;
    auto phase = [&](double from, double share) -> KeepGoing {
        return [&progress, from, share](double f) { return progress.update(from + share * f); };
    };
    if (!writeRaw(out, plain, phase(0.0, plainShare), why))
        return false;
    if (!gzipped.empty() &&
        !writeGzipMembers(out, gzipped, GzipOptions(), phase(plainShare, 1.0 - plainShare), why))
        return false;
    // An interrupt that came after the last byte still leaves no file.
    if (!progress.update(1.0)) {
        why = "interrupted";
        return false;
    }
    return out.commit(why);
}

} // namespace vxfield
