#include "tests/hostile/HostileLoad.h"

#include "platform/core/KcDArray.h"
#include "platform/core/VxMessage.h"
#include "platform/core/VxObjectPool.h"
#include "platform/data/VxField3.h"
#include "platform/data/VxLattice3.h"
#include "vxdicom/reader/VxDicom.h"

#include <cstdlib>
#include <sstream>
#include <stdexcept>
#include <unistd.h>

namespace fs = std::filesystem;

namespace hostile {

namespace {

uint64_t fnv1a(const unsigned char *p, size_t n)
{
    uint64_t h = 1469598103934665603ull;
    for (size_t i = 0; i < n; ++i) {
        h ^= p[i];
        h *= 1099511628211ull;
    }
    return h;
}

} // namespace

LoadOutcome loadFiles(const std::vector<std::string> &names, bool delayed)
{
    ScopedEnv env("DICOM_DELAYED_READ", delayed ? "1" : "0");
    VxObjectPool::instance()->clear();
    std::vector<const char *> argv;
    for (const std::string &n : names)
        argv.push_back(n.c_str());
    LoadOutcome out;
    KcDArray<VxField3 *> fields;
    {
        VxMessageCapture capture;
        out.status = vxReadDicom(static_cast<int>(argv.size()), argv.data(), fields, 0, true);
        out.console = capture.text();
    }
    for (const VxField3 *field : fields) {
        FieldFacts f;
        f.label = field->label();
        if (const VxLattice3 *lat = field->lattice()) {
            for (int a = 0; a < 3; ++a)
                f.dims[a] = lat->dim(a);
            f.sampleBytes = lat->voxelBytes();
            f.samplesHash = fnv1a(static_cast<const unsigned char *>(lat->data()), lat->numBytes());
        }
        out.fields.push_back(f);
    }
    VxObjectPool::instance()->clear();
    return out;
}

std::string failureLine(const std::string &console, const std::string &name)
{
    std::istringstream in(console);
    const std::string prefix = "reading " + name + " failed: ";
    for (std::string line; std::getline(in, line);)
        if (line.rfind(prefix, 0) == 0)
            return line;
    return {};
}

bool readLine(const std::string &console, const std::string &name)
{
    std::istringstream in(console);
    for (std::string line; std::getline(in, line);)
        if (line == "+ " + name)
            return true;
    return false;
}

WatchedTempDir::WatchedTempDir()
{
    std::string pattern = (fs::temp_directory_path() / "vxhostile-tmp-XXXXXX").string();
    if (!mkdtemp(pattern.data()))
        throw std::runtime_error("cannot create a temporary directory");
    dir = pattern;
    if (const char *old = std::getenv("TMPDIR"))
        previous = old;
    setenv("TMPDIR", dir.c_str(), 1);
}

WatchedTempDir::~WatchedTempDir()
{
    if (previous)
        setenv("TMPDIR", previous->c_str(), 1);
    else
        unsetenv("TMPDIR");
    std::error_code ec;
    fs::remove_all(dir, ec);
}

std::vector<std::string> WatchedTempDir::leftovers() const
{
    std::vector<std::string> names;
    std::error_code ec;
    for (const auto &entry : fs::directory_iterator(dir, ec))
        names.push_back(entry.path().filename().string());
    return names;
}

} // namespace hostile
