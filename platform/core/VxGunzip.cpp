#include "platform/core/VxGunzip.h"

#include <archive.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace {

struct ArchiveCloser
{
    void operator()(archive *a) const { archive_read_free(a); }
};

// Closes the descriptor and removes the file unless released: every early
// return below leaves nothing behind.
class TempFileGuard
{
public:
    TempFileGuard(int fd, std::string path) : fd(fd), path(std::move(path)) {}
    ~TempFileGuard()
    {
        if (fd >= 0)
            ::close(fd);
        if (!path.empty())
            ::unlink(path.c_str());
    }
    TempFileGuard(const TempFileGuard &) = delete;
    TempFileGuard &operator=(const TempFileGuard &) = delete;

    int descriptor() const { return fd; }
    /// Closes the file and keeps it; false when closing fails (data lost).
    bool keep()
    {
        const int rc = ::close(fd);
        fd = -1;
        if (rc != 0)
            return false;
        path.clear();
        return true;
    }

private:
    int fd;
    std::string path;
};

void setWhy(KcString *why, const std::string &text)
{
    if (why)
        *why = text;
}

std::string tempDirectory()
{
    const char *dir = std::getenv("TMPDIR");
    return dir && *dir ? std::string(dir) : std::string("/tmp");
}

bool writeAll(int fd, const char *p, size_t n)
{
    while (n > 0) {
        const ssize_t w = ::write(fd, p, n);
        if (w < 0) {
            if (errno == EINTR)
                continue;
            return false;
        }
        p += w;
        n -= static_cast<size_t>(w);
    }
    return true;
}

} // namespace

bool VxGunzip::needsUnpacking(const char *name)
{
    const KcString s(name);
    return s.endsWith(".gz") || s.endsWith(".Z");
}

VxGunzip::~VxGunzip()
{
    remove();
}

void VxGunzip::remove()
{
    if (!tempPath.empty())
        ::unlink(tempPath.c_str());
    tempPath.clear();
}

bool VxGunzip::unpack(const char *name, KcString *why)
{
    remove();
    if (!name || !*name) {
        setWhy(why, "no file name");
        return false;
    }
    struct stat st = {};
    if (::stat(name, &st) != 0) {
        setWhy(why, std::string("cannot open: ") + std::strerror(errno));
        return false;
    }
    if (!S_ISREG(st.st_mode)) {
        setWhy(why, "not a regular file");
        return false;
    }
    if (st.st_size == 0) {
        setWhy(why, "empty file");
        return false;
    }

    std::unique_ptr<archive, ArchiveCloser> a(archive_read_new());
    if (!a) {
        setWhy(why, "out of memory");
        return false;
    }
    archive_read_support_filter_all(a.get());
    archive_read_support_format_raw(a.get());
    if (archive_read_open_filename(a.get(), name, 65536) != ARCHIVE_OK) {
        setWhy(why, archive_error_string(a.get()) ? archive_error_string(a.get())
                                                  : "not in gzip or compress format");
        return false;
    }
    archive_entry *entry = nullptr;
    if (archive_read_next_header(a.get(), &entry) != ARCHIVE_OK) {
        const char *err = archive_error_string(a.get());
        setWhy(why, err ? err : "not in gzip or compress format");
        return false;
    }
    // libarchive passes plain data through unchanged; the service only unpacks.
    const int filter = archive_filter_code(a.get(), 0);
    if (filter == ARCHIVE_FILTER_NONE) {
        setWhy(why, "not in gzip or compress format");
        return false;
    }

    std::string pattern = tempDirectory() + "/vxgunzip-XXXXXX";
    const int fd = ::mkstemp(pattern.data());
    if (fd < 0) {
        setWhy(why, "cannot create a temporary file in " + tempDirectory() + ": " +
                        std::strerror(errno));
        return false;
    }
    TempFileGuard guard(fd, pattern);

    std::unique_ptr<char[]> buffer(new char[65536]);
    for (;;) {
        const la_ssize_t n = archive_read_data(a.get(), buffer.get(), 65536);
        if (n == 0)
            break;
        if (n < 0) {
            const char *err = archive_error_string(a.get());
            setWhy(why, err ? err : "corrupt compressed data");
            return false;
        }
        if (!writeAll(guard.descriptor(), buffer.get(), static_cast<size_t>(n))) {
            setWhy(why, "writing " + pattern + " failed: " + std::strerror(errno));
            return false;
        }
    }
    if (!guard.keep()) {
        setWhy(why, "writing " + pattern + " failed: " + std::strerror(errno));
        return false;
    }
    tempPath = pattern;
    return true;
}
