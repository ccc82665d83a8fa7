#include "fuzz/FuzzSupport.h"

#include "platform/core/VxMessage.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <system_error>

#include <unistd.h>

namespace vxfuzz {

void quietConsole()
{
    VxMessage::getTheMsg()->setSink([](const std::string &) {});
}

namespace {

void removeScratchDir()
{
    std::error_code ignored;
    std::filesystem::remove_all(scratchDir(), ignored);
}

std::string makeScratchDir()
{
    std::string base = "/dev/shm";
    if (access(base.c_str(), W_OK) != 0) {
        const char *tmp = std::getenv("TMPDIR");
        base = tmp && *tmp ? tmp : "/tmp";
    }
    std::string pattern = base + "/vxfuzz-XXXXXX";
    if (!mkdtemp(pattern.data())) {
        std::perror("vxfuzz: cannot make a scratch folder");
        std::abort();
    }
    return pattern;
}

} // namespace

const std::string &scratchDir()
{
    // Never destroyed: the exit handler that removes the folder runs after
    // the destructors of statics made before it was registered.
    static const std::string *dir = [] {
        auto *made = new std::string(makeScratchDir());
        std::atexit(removeScratchDir);
        return made;
    }();
    return *dir;
}

std::string writeScratchFile(const char *name, const uint8_t *data, size_t size)
{
    const std::string path = scratchDir() + "/" + name;
    FILE *f = std::fopen(path.c_str(), "wb");
    if (!f || (size > 0 && std::fwrite(data, 1, size, f) != size) || std::fclose(f) != 0) {
        std::perror(path.c_str());
        std::abort();
    }
    return path;
}

void checkFailed(const char *condition, const char *file, int line)
{
    std::fprintf(stderr, "vxfuzz: check failed: %s (%s:%d)\n", condition, file, line);
    std::abort();
}

} // namespace vxfuzz
