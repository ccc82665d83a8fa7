// NRRD reading and writing (attached or single detached data; raw, gzip or
// ascii encoding), after the NRRD0004 format definition of teem.

#include "platform/core/VxMessage.h"
#include "platform/data/FieldGeometry.h"
#include "platform/data/OutputFile.h"
#include "platform/data/VxFieldFile.h"

#include <zlib.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <strings.h>
#include <sys/stat.h>
#include <vector>

using vxfield::Geometry;
using vxfield::Vec3;

namespace {

const char *const kSliceOffsetsKey = "vx:SliceOffsets";
const char *const kParameterTypesKey = "vx:ParameterTypes";

bool fail(KcString *error, const char *verb, const char *path, const KcString &why)
{
    if (error)
        *error = KcString::format("%s %s failed: %s", verb, path ? path : "(null)", why.c_str());
    return false;
}

bool hostIsLittleEndian()
{
    const uint16_t one = 1;
    unsigned char first;
    std::memcpy(&first, &one, 1);
    return first == 1;
}

struct FileCloser
{
    void operator()(FILE *f) const
    {
        if (f)
            std::fclose(f);
    }
};
using FilePtr = std::unique_ptr<FILE, FileCloser>;

struct FreeDeleter
{
    void operator()(void *p) const { std::free(p); }
};
using Buffer = std::unique_ptr<void, FreeDeleter>;

// ---------------------------------------------------------------- text forms

std::string formatNumber(double v)
{
    char buf[40];
    std::snprintf(buf, sizeof buf, "%.12g", v);
    return buf;
}

std::string formatVector(const Vec3 &v)
{
    return "(" + formatNumber(v[0]) + "," + formatNumber(v[1]) + "," + formatNumber(v[2]) + ")";
}

// Values: NRRD escapes only newlines and backslashes.
std::string escapeValue(const std::string &s)
{
    std::string out;
    out.reserve(s.size());
    for (char c : s) {
        if (c == '\\')
            out += "\\\\";
        else if (c == '\n')
            out += "\\n";
        else
            out += c;
    }
    return out;
}

std::string unescapeValue(const std::string &s)
{
    std::string out;
    out.reserve(s.size());
    for (size_t i = 0; i < s.size(); ++i) {
        if (s[i] == '\\' && i + 1 < s.size()) {
            if (s[i + 1] == 'n') {
                out += '\n';
                ++i;
                continue;
            }
            if (s[i + 1] == '\\') {
                out += '\\';
                ++i;
                continue;
            }
        }
        out += s[i];
    }
    return out;
}

// Names in key paths: the path separator, the key-value separator, blanks
// and control characters are percent-encoded.
std::string encodeName(const std::string &s)
{
    std::string out;
    for (unsigned char c : s) {
        if (c == '%' || c == '/' || c == ':' || c == '=' || c == '\\' || c <= ' ' || c == 0x7f) {
            char buf[4];
            std::snprintf(buf, sizeof buf, "%%%02X", c);
            out += buf;
        } else {
            out += static_cast<char>(c);
        }
    }
    return out;
}

std::string decodeName(const std::string &s)
{
    std::string out;
    for (size_t i = 0; i < s.size(); ++i) {
        if (s[i] == '%' && i + 2 < s.size() &&
            std::isxdigit(static_cast<unsigned char>(s[i + 1])) &&
            std::isxdigit(static_cast<unsigned char>(s[i + 2]))) {
            out += static_cast<char>(std::strtol(s.substr(i + 1, 2).c_str(), nullptr, 16));
            i += 2;
        } else {
            out += s[i];
        }
    }
    return out;
}

std::string trim(const std::string &s)
{
    size_t a = 0;
    size_t b = s.size();
    while (a < b && std::isspace(static_cast<unsigned char>(s[a])))
        ++a;
    while (b > a && std::isspace(static_cast<unsigned char>(s[b - 1])))
        --b;
    return s.substr(a, b - a);
}

std::vector<std::string> words(const std::string &s)
{
    std::vector<std::string> out;
    size_t i = 0;
    while (i < s.size()) {
        while (i < s.size() && std::isspace(static_cast<unsigned char>(s[i])))
            ++i;
        size_t j = i;
        while (j < s.size() && !std::isspace(static_cast<unsigned char>(s[j])))
            ++j;
        if (j > i)
            out.push_back(s.substr(i, j - i));
        i = j;
    }
    return out;
}

bool parseDouble(const std::string &s, double &v)
{
    const std::string t = trim(s);
    if (t.empty())
        return false;
    char *end = nullptr;
    v = std::strtod(t.c_str(), &end);
    return end && *end == '\0';
}

// "(a,b,c)" groups and "none" words, in order. False when a group is not
// three numbers.
bool parseVectors(const std::string &s, std::vector<std::pair<bool, Vec3>> &out)
{
    size_t i = 0;
    while (i < s.size()) {
        if (std::isspace(static_cast<unsigned char>(s[i]))) {
            ++i;
            continue;
        }
        if (s[i] == '(') {
            const size_t close = s.find(')', i);
            if (close == std::string::npos)
                return false;
            std::string inner = s.substr(i + 1, close - i - 1);
            Vec3 v{0, 0, 0};
            size_t n = 0;
            size_t start = 0;
            while (true) {
                const size_t comma = inner.find(',', start);
                const std::string part = inner.substr(
                    start, comma == std::string::npos ? std::string::npos : comma - start);
                if (n >= 3 || !parseDouble(part, v[n]) || !std::isfinite(v[n]))
                    return false;
                ++n;
                if (comma == std::string::npos)
                    break;
                start = comma + 1;
            }
            if (n != 3)
                return false;
            out.emplace_back(true, v);
            i = close + 1;
        } else {
            size_t j = i;
            while (j < s.size() && !std::isspace(static_cast<unsigned char>(s[j])))
                ++j;
            if (strcasecmp(s.substr(i, j - i).c_str(), "none") != 0)
                return false;
            out.emplace_back(false, Vec3{0, 0, 0});
            i = j;
        }
    }
    return true;
}

// ------------------------------------------------------------------ writing

void flattenParameters(const VxParamBundle &bundle, const std::string &prefix,
                       std::vector<std::pair<std::string, std::string>> &keys, std::string &types)
{
    for (int i = 0; i < bundle.size(); ++i) {
        const VxParamBase *e = bundle.entry(i);
        const std::string path = prefix + encodeName(e->name());
        if (const VxParamBundle *b = e->asBundle()) {
            if (b->size() == 0)
                keys.emplace_back(path + "/", "");
            else
                flattenParameters(*b, path + "/", keys, types);
            continue;
        }
        const auto *p = static_cast<const VxParameter *>(e);
        if (p->type() == VxParameter::Float) {
            char buf[40];
            std::snprintf(buf, sizeof buf, "%.17g", p->floatValue());
            keys.emplace_back(path, buf);
            types += (types.empty() ? "" : " ") + path + "=f";
        } else {
            keys.emplace_back(path, p->stringValue());
            if (p->type() == VxParameter::Int)
                types += (types.empty() ? "" : " ") + path + "=i";
        }
    }
}

const char *nrrdTypeName(KcPrimType type)
{
    switch (type.id()) {
    case KcPrimType::UInt8:
        return "uint8";
    case KcPrimType::Int16:
        return "int16";
    case KcPrimType::UInt16:
        return "uint16";
    case KcPrimType::Int32:
        return "int32";
    case KcPrimType::Float:
        return "float";
    }
    return "uint8";
}

// ------------------------------------------------------------------ reading

struct Header
{
    std::map<std::string, std::string> fields; // lower-case field name -> value
    std::vector<std::pair<std::string, std::string>> keys;
    long dataOffset = 0;
};

bool readLine(FILE *f, std::string &line)
{
    line.clear();
    int c;
    while ((c = std::fgetc(f)) != EOF) {
        if (c == '\n')
            return true;
        line += static_cast<char>(c);
    }
    return !line.empty();
}

bool readHeader(FILE *f, Header &h, KcString &why)
{
    std::string line;
    if (!readLine(f, line) || line.compare(0, 4, "NRRD") != 0) {
        why = "not an NRRD file (no NRRD magic)";
        return false;
    }
    while (true) {
        if (!readLine(f, line))
            break; // a detached header may end without a blank line
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        if (line.empty())
            break;
        if (line[0] == '#')
            continue;
        const size_t kv = line.find(":=");
        const size_t colon = line.find(": ");
        if (kv != std::string::npos && (colon == std::string::npos || kv < colon)) {
            h.keys.emplace_back(unescapeValue(line.substr(0, kv)),
                                unescapeValue(line.substr(kv + 2)));
            continue;
        }
        if (colon == std::string::npos) {
            why = "header line without \": \": \"" + line.substr(0, 80) + "\"";
            return false;
        }
        std::string name = trim(line.substr(0, colon));
        for (char &c : name)
            c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        h.fields[name] = trim(line.substr(colon + 2));
    }
    h.dataOffset = std::ftell(f);
    return true;
}

const std::string *field(const Header &h, std::initializer_list<const char *> names)
{
    for (const char *n : names) {
        auto it = h.fields.find(n);
        if (it != h.fields.end())
            return &it->second;
    }
    return nullptr;
}

// The sample type of the file, and what it is loaded as.
bool parseType(const std::string &text, KcPrimType &loaded, int &fileBytes, bool &isFloat,
               bool &isSigned)
{
    std::string t;
    for (char c : text)
        t += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    struct Entry
    {
        const char *names[6];
        KcPrimType loaded;
        int bytes;
        bool isFloat;
        bool isSigned;
    };
    static const Entry table[] = {
        {{"signed char", "int8", "int8_t", nullptr}, KcPrimType::Int16, 1, false, true},
        {{"uchar", "unsigned char", "uint8", "uint8_t", nullptr},
         KcPrimType::UInt8,
         1,
         false,
         false},
        {{"short", "short int", "signed short", "signed short int", "int16", "int16_t"},
         KcPrimType::Int16,
         2,
         false,
         true},
        {{"ushort", "unsigned short", "unsigned short int", "uint16", "uint16_t", nullptr},
         KcPrimType::UInt16,
         2,
         false,
         false},
        {{"int", "signed int", "int32", "int32_t", nullptr}, KcPrimType::Int32, 4, false, true},
        {{"float", nullptr}, KcPrimType::Float, 4, true, true},
        {{"double", nullptr}, KcPrimType::Float, 8, true, true},
    };
    for (const Entry &e : table)
        for (const char *n : e.names)
            if (n && t == n) {
                loaded = e.loaded;
                fileBytes = e.bytes;
                isFloat = e.isFloat;
                isSigned = e.isSigned;
                return true;
            }
    return false;
}

void swapBytes(void *data, size_t count, int size)
{
    auto *p = static_cast<unsigned char *>(data);
    for (size_t i = 0; i < count; ++i, p += size)
        std::reverse(p, p + size);
}

// Decompresses gzip (or zlib) data from f: skips `skip` bytes of the
// decompressed stream, then fills `need` bytes.
bool readGzip(FILE *f, long skip, void *dst, size_t need, KcString &why)
{
    z_stream zs;
    std::memset(&zs, 0, sizeof zs);
    if (inflateInit2(&zs, 15 + 32) != Z_OK) {
        why = "cannot start gzip decompression";
        return false;
    }
    std::vector<unsigned char> in(1 << 18);
    std::vector<unsigned char> scratch(skip > 0 ? std::min<long>(skip, 1 << 16) : 0);
    auto *out = static_cast<unsigned char *>(dst);
    size_t done = 0;
    long skipped = 0;
    bool ended = false;
    while (done < need) {
        if (zs.avail_in == 0) {
            const size_t n = std::fread(in.data(), 1, in.size(), f);
            if (n == 0)
                break;
            zs.next_in = in.data();
            zs.avail_in = static_cast<uInt>(n);
        }
        if (skipped < skip) {
            zs.next_out = scratch.data();
            zs.avail_out = static_cast<uInt>(std::min<long>(skip - skipped, scratch.size()));
        } else {
            zs.next_out = out + done;
            zs.avail_out = static_cast<uInt>(std::min<size_t>(need - done, 1u << 30));
        }
        const uInt before = zs.avail_out;
        const int rc = inflate(&zs, Z_NO_FLUSH);
        const size_t produced = before - zs.avail_out;
        if (skipped < skip)
            skipped += static_cast<long>(produced);
        else
            done += produced;
        if (rc == Z_STREAM_END) {
            // Concatenated gzip members continue the stream.
            if (zs.avail_in == 0 && std::feof(f)) {
                ended = true;
                break;
            }
            inflateReset(&zs);
            continue;
        }
        if (rc != Z_OK && rc != Z_BUF_ERROR) {
            inflateEnd(&zs);
            why = KcString::format("the gzip data is corrupt (%s)", zs.msg ? zs.msg : "zlib error");
            return false;
        }
    }
    inflateEnd(&zs);
    if (done < need) {
        why = KcString::format("the gzip data holds %zu of %zu bytes%s", done, need,
                               ended ? "" : " (truncated)");
        return false;
    }
    return true;
}

bool readAscii(FILE *f, void *dst, size_t count, KcPrimType type, KcString &why)
{
    size_t n = 0;
    while (n < count) {
        double v;
        int c;
        // Numbers may be separated by blanks, newlines or commas.
        while ((c = std::fgetc(f)) != EOF && (std::isspace(c) || c == ','))
            ;
        if (c == EOF)
            break;
        std::ungetc(c, f);
        if (std::fscanf(f, "%lf", &v) != 1) {
            why = KcString::format("ascii sample %zu is not a number", n);
            return false;
        }
        switch (type.id()) {
        case KcPrimType::UInt8:
            static_cast<uint8_t *>(dst)[n] =
                static_cast<uint8_t>(std::clamp(std::round(v), 0.0, 255.0));
            break;
        case KcPrimType::Int16:
            static_cast<int16_t *>(dst)[n] =
                static_cast<int16_t>(std::clamp(std::round(v), -32768.0, 32767.0));
            break;
        case KcPrimType::UInt16:
            static_cast<uint16_t *>(dst)[n] =
                static_cast<uint16_t>(std::clamp(std::round(v), 0.0, 65535.0));
            break;
        case KcPrimType::Int32:
            static_cast<int32_t *>(dst)[n] =
                static_cast<int32_t>(std::clamp(std::round(v), -2147483648.0, 2147483647.0));
            break;
        case KcPrimType::Float:
            static_cast<float *>(dst)[n] = static_cast<float>(v);
            break;
        }
        ++n;
    }
    if (n < count) {
        why = KcString::format("the ascii data holds %zu of %zu samples", n, count);
        return false;
    }
    return true;
}

// Inserts a parameter (or, for a path ending in "/", an empty bundle) at
// its path below root.
void restoreParameter(VxParamBundle &root, const std::string &key, const std::string &value,
                      const std::map<std::string, char> &types)
{
    VxParamBundle *b = &root;
    size_t start = 0;
    while (true) {
        const size_t slash = key.find('/', start);
        if (slash == std::string::npos)
            break;
        const std::string name = decodeName(key.substr(start, slash - start));
        VxParamBundle *sub = b->bundle(name.c_str());
        if (!sub) {
            sub = new VxParamBundle(name.c_str());
            b->insert(sub);
        }
        b = sub;
        start = slash + 1;
    }
    if (start >= key.size())
        return;
    const std::string name = decodeName(key.substr(start));
    auto t = types.find(key);
    if (t != types.end() && t->second == 'f')
        b->setFloat(name.c_str(), std::strtod(value.c_str(), nullptr));
    else if (t != types.end() && t->second == 'i')
        b->setInt(name.c_str(), static_cast<int>(std::strtol(value.c_str(), nullptr, 10)));
    else
        b->setString(name.c_str(), value);
}

KcString directoryOf(const char *path)
{
    const std::string p = path;
    const size_t slash = p.find_last_of('/');
    return slash == std::string::npos ? KcString(".") : KcString(p.substr(0, slash));
}

} // namespace

bool VxFieldFile::saveNrrd(const VxField3 &field, const char *path, bool gzip, KcString *error)
{
    const char *verb = "saving";
    if (!path || !*path)
        return fail(error, verb, path, "no file name");
    const VxLattice3 *lat = field.lattice();
    if (!lat || !lat->data())
        return fail(error, verb, path, "the field has no regular lattice with samples");
    if (!VxFieldFile::hasFiniteGeometry(field))
        return fail(error, verb, path,
                    KcString::format("field \"%s\": its geometry is not finite (NaN or infinity "
                                     "in its position, spacing or orientation)",
                                     field.label().c_str()));
    Geometry g;
    KcString why;
    if (!vxfield::geometryOf(field, g, why))
        return fail(error, verb, path, why);

    const int comps = lat->nComponents();
    std::string h = "NRRD0004\n"
                    "# NRRD file format, as teem reads it:\n"
                    "# http://teem.sourceforge.net/nrrd/format.html\n";
    h += std::string("type: ") + nrrdTypeName(lat->primType()) + "\n";
    h += comps > 1 ? "dimension: 4\n" : "dimension: 3\n";
    h += "space: left-posterior-superior\n";
    h += "sizes:";
    if (comps > 1)
        h += " " + std::to_string(comps);
    for (int k = 0; k < 3; ++k)
        h += " " + std::to_string(lat->dim(k));
    h += "\nspace directions:";
    if (comps > 1)
        h += " none";
    for (int k = 0; k < 3; ++k)
        h += " " + formatVector(g.axis[k]);
    h += "\nkinds:";
    if (comps > 1) {
        const bool colour = lat->primType() == KcPrimType::UInt8;
        h += comps == 3 && colour ? " RGB-color" : comps == 4 && colour ? " RGBA-color" : " vector";
    }
    h += " domain domain domain\n";
    h += std::string("endian: ") + (hostIsLittleEndian() ? "little" : "big") + "\n";
    h += std::string("encoding: ") + (gzip ? "gzip" : "raw") + "\n";
    h += "space origin: " + formatVector(g.origin) + "\n";
    h += "space units: \"mm\" \"mm\" \"mm\"\n";
    if (!field.label().isEmpty())
        h += "content: " + escapeValue(field.label()) + "\n";

    std::vector<std::pair<std::string, std::string>> keys;
    std::string types;
    flattenParameters(field.parameters(), "", keys, types);
    if (g.stacked) {
        std::string offsets;
        for (double d : g.sliceOffsetsMm)
            offsets += (offsets.empty() ? "" : " ") + formatNumber(d);
        h += std::string(kSliceOffsetsKey) + ":=" + offsets + "\n";
    }
    if (!types.empty())
        h += std::string(kParameterTypesKey) + ":=" + types + "\n";
    for (const auto &[key, value] : keys)
        h += key + ":=" + escapeValue(value) + "\n";
    h += "\n";

    // The header as it is; the samples raw after it or as gzip members.
    const vxfield::ByteRange header{h.data(), h.size()};
    const vxfield::ByteRange samples{lat->data(), lat->numBytes()};
    const bool written = gzip ? vxfield::writeFile(path, {header}, {samples}, why)
                              : vxfield::writeFile(path, {header, samples}, {}, why);
    if (!written)
        return fail(error, verb, path, why);
    return true;
}

std::unique_ptr<VxRegScalarField3> VxFieldFile::loadNrrd(const char *path, KcString *error)
{
    const char *verb = "loading";
    auto bad = [&](const KcString &why) -> std::unique_ptr<VxRegScalarField3> {
        fail(error, verb, path, why);
        return nullptr;
    };
    if (!path || !*path)
        return bad("no file name");
    FilePtr f(std::fopen(path, "rb"));
    if (!f)
        return bad("cannot open: " + vxfield::systemError());
    Header h;
    KcString why;
    if (!readHeader(f.get(), h, why))
        return bad(why);

    // Sample type.
    const std::string *typeText = field(h, {"type"});
    if (!typeText)
        return bad("no \"type\" field");
    KcPrimType type;
    int fileBytes = 0;
    bool isFloat = false;
    bool isSigned = false;
    if (!parseType(*typeText, type, fileBytes, isFloat, isSigned))
        return bad("sample type \"" + *typeText + "\" is not supported");

    // Axes.
    const std::string *dimText = field(h, {"dimension"});
    const std::string *sizesText = field(h, {"sizes"});
    if (!dimText || !sizesText)
        return bad("no \"dimension\" or \"sizes\" field");
    const int dimension = std::atoi(dimText->c_str());
    if (dimension < 1 || dimension > 16)
        return bad("dimension " + *dimText + " is not supported");
    std::vector<long long> sizes;
    for (const std::string &w : words(*sizesText)) {
        char *end = nullptr;
        const long long v = std::strtoll(w.c_str(), &end, 10);
        if (!end || *end || v < 1 || v > INT_MAX)
            return bad("size \"" + w + "\" is not a positive count");
        sizes.push_back(v);
    }
    if (static_cast<int>(sizes.size()) != dimension)
        return bad(KcString::format("%zu sizes for dimension %d", sizes.size(), dimension));

    std::vector<std::string> kinds(static_cast<size_t>(dimension), "");
    if (const std::string *k = field(h, {"kinds"})) {
        const std::vector<std::string> w = words(*k);
        for (size_t i = 0; i < w.size() && i < kinds.size(); ++i)
            kinds[i] = w[i];
    }
    std::vector<std::pair<bool, Vec3>> directions;
    if (const std::string *d = field(h, {"space directions"})) {
        if (!parseVectors(*d, directions) || static_cast<int>(directions.size()) != dimension)
            return bad("\"space directions\" does not give one vector or none per axis");
    }
    auto isDomainKind = [](const std::string &k) {
        return k.empty() || strcasecmp(k.c_str(), "domain") == 0 ||
               strcasecmp(k.c_str(), "space") == 0;
    };
    auto isSpatial = [&](int axis) {
        if (!directions.empty())
            return directions[static_cast<size_t>(axis)].first;
        return isDomainKind(kinds[static_cast<size_t>(axis)]);
    };

    // A first non-spatial axis holds the components of each voxel; the next
    // (up to three) spatial axes are the lattice; any further axes are
    // volumes, of which the first is loaded.
    int axis = 0;
    int components = 1;
    if (dimension > 1 && !isSpatial(0)) {
        components = static_cast<int>(sizes[0]);
        axis = 1;
    }
    int dims[3] = {1, 1, 1};
    Vec3 columns[3] = {{0, 0, 0}, {0, 0, 0}, {0, 0, 0}};
    int spatialAxes = 0;
    for (; axis < dimension && spatialAxes < 3; ++axis) {
        if (!isSpatial(axis))
            return bad(
                KcString::format("axis %d is not spatial where a spatial one is needed", axis));
        dims[spatialAxes] = static_cast<int>(sizes[static_cast<size_t>(axis)]);
        if (!directions.empty())
            columns[spatialAxes] = directions[static_cast<size_t>(axis)].second;
        ++spatialAxes;
    }
    size_t volumes = 1;
    for (; axis < dimension; ++axis)
        volumes *= static_cast<size_t>(sizes[static_cast<size_t>(axis)]);
    if (spatialAxes == 0)
        return bad("no spatial axis");

    // Without space directions: "spacings" and "axis mins" along the axes.
    Vec3 origin{0, 0, 0};
    const int firstSpatial = components > 1 ? 1 : 0;
    if (directions.empty()) {
        std::vector<std::string> sp;
        std::vector<std::string> mins;
        if (const std::string *s = field(h, {"spacings"}))
            sp = words(*s);
        if (const std::string *s = field(h, {"axis mins", "axismins"}))
            mins = words(*s);
        for (int k = 0; k < spatialAxes; ++k) {
            const size_t a = static_cast<size_t>(firstSpatial + k);
            double spacing = 1.0;
            if (a < sp.size() && !parseDouble(sp[a], spacing))
                spacing = 1.0;
            if (!std::isfinite(spacing) || spacing == 0.0)
                spacing = 1.0;
            columns[k][static_cast<size_t>(k)] = spacing;
            double lo = 0.0;
            if (a < mins.size() && parseDouble(mins[a], lo) && std::isfinite(lo))
                origin[static_cast<size_t>(k)] = lo;
        }
    } else if (const std::string *o = field(h, {"space origin"})) {
        std::vector<std::pair<bool, Vec3>> v;
        if (!parseVectors(*o, v) || v.size() != 1 || !v[0].first)
            return bad("\"space origin\" is not one vector");
        origin = v[0].second;
    }

    // Patient space: LPS as it is; RAS and LAS are mirrored into it.
    double sign[3] = {1, 1, 1};
    if (const std::string *s = field(h, {"space"})) {
        std::string sp;
        for (char c : *s)
            sp += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        if (sp == "right-anterior-superior" || sp == "ras") {
            sign[0] = sign[1] = -1;
        } else if (sp == "left-anterior-superior" || sp == "las") {
            sign[1] = -1;
        } else if (sp != "left-posterior-superior" && sp != "lps" && sp != "scanner-xyz" &&
                   sp != "3d-right-handed" && sp != "3d-left-handed") {
            return bad("space \"" + *s + "\" is not supported");
        }
    }
    double unitMm = 1.0;
    if (const std::string *u = field(h, {"space units"})) {
        std::string first = words(*u).empty() ? "" : words(*u)[0];
        first.erase(std::remove(first.begin(), first.end(), '"'), first.end());
        if (first == "m")
            unitMm = 1000.0;
        else if (first == "cm")
            unitMm = 10.0;
        else if (first == "um" || first == "micron" || first == "microns")
            unitMm = 0.001;
    }
    Geometry g;
    for (size_t c = 0; c < 3; ++c) {
        g.origin[c] = sign[c] * origin[c] * unitMm;
        for (int k = 0; k < 3; ++k)
            g.axis[k][c] = sign[c] * columns[k][c] * unitMm;
    }

    // Parameters, their types and the slice offsets.
    std::map<std::string, char> types;
    std::vector<double> offsets;
    for (const auto &[key, value] : h.keys) {
        if (key == kParameterTypesKey) {
            for (const std::string &w : words(value)) {
                const size_t eq = w.rfind('=');
                if (eq != std::string::npos && eq + 1 < w.size())
                    types[w.substr(0, eq)] = w[eq + 1];
            }
        } else if (key == kSliceOffsetsKey) {
            for (const std::string &w : words(value)) {
                double d;
                if (parseDouble(w, d))
                    offsets.push_back(d);
            }
        }
    }
    VxParamBundle params("Parameters");
    for (const auto &[key, value] : h.keys)
        if (key.compare(0, 3, "vx:") != 0)
            restoreParameter(params, key, value, types);
    if (!offsets.empty()) {
        if (static_cast<int>(offsets.size()) == dims[2] && dims[2] > 0) {
            g.stacked = true;
            g.sliceOffsetsMm = offsets;
            for (double &d : g.sliceOffsetsMm)
                d *= unitMm;
        } else {
            VxMessage::getTheMsg()->warning(
                "loading %s: %zu slice offsets for %d slices are ignored\n", path, offsets.size(),
                dims[2]);
        }
    }

    // Where the samples are.
    FilePtr detached;
    FILE *data = f.get();
    if (const std::string *df = field(h, {"data file", "datafile"})) {
        const std::vector<std::string> w = words(*df);
        if (w.size() != 1 || w[0] == "LIST" || w[0].find('%') != std::string::npos)
            return bad("only a single detached data file is supported");
        const std::string name = w[0][0] == '/' ? w[0] : directoryOf(path) + "/" + w[0];
        detached.reset(std::fopen(name.c_str(), "rb"));
        if (!detached)
            return bad("cannot open the data file " + name + ": " + vxfield::systemError());
        data = detached.get();
    } else if (h.dataOffset <= 0) {
        return bad("no data after the header");
    }
    long lineSkip = 0;
    long byteSkip = 0;
    if (const std::string *s = field(h, {"line skip", "lineskip"}))
        lineSkip = std::atol(s->c_str());
    if (const std::string *s = field(h, {"byte skip", "byteskip"}))
        byteSkip = std::atol(s->c_str());
    std::string discard;
    for (long i = 0; i < lineSkip; ++i)
        if (!readLine(data, discard))
            return bad("the data ends within the skipped lines");

    std::string encoding = "raw";
    if (const std::string *e = field(h, {"encoding"}))
        encoding = *e;
    for (char &c : encoding)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));

    const size_t voxels = static_cast<size_t>(dims[0]) * dims[1] * dims[2];
    const size_t samples = voxels * static_cast<size_t>(components);
    if (samples > (SIZE_MAX / 8) || voxels == 0)
        return bad("the sizes are too large");
    const size_t needFile = samples * static_cast<size_t>(fileBytes);
    const bool convert = fileBytes != type.size();
    const bool ascii = encoding == "ascii" || encoding == "text" || encoding == "txt";
    if (byteSkip < -1)
        return bad(KcString::format("byte skip %ld is not -1 or a count", byteSkip));
    if (encoding != "raw" && encoding != "gzip" && encoding != "gz" && !ascii)
        return bad("encoding \"" + encoding + "\" is not supported");

    // Raw samples: check that the file holds them before allocating.
    long start = 0;
    if (encoding == "raw") {
        struct stat st;
        if (fstat(fileno(data), &st) != 0)
            return bad("cannot read the file size: " + vxfield::systemError());
        start = std::ftell(data);
        if (byteSkip == -1)
            start = static_cast<long>(st.st_size) - static_cast<long>(needFile);
        else
            start += byteSkip;
        if (start < 0 || static_cast<unsigned long long>(start) + needFile >
                             static_cast<unsigned long long>(st.st_size))
            return bad(KcString::format("the file holds %lld bytes of samples, %zu are needed",
                                        static_cast<long long>(st.st_size) - std::max(start, 0L),
                                        needFile));
    }
    Buffer buffer(std::malloc(ascii ? samples * static_cast<size_t>(type.size())
                                    : (needFile ? needFile : 1)));
    if (!buffer)
        return bad(KcString::format("out of memory for %zu bytes", needFile));

    if (encoding == "raw") {
        if (std::fseek(data, start, SEEK_SET) != 0 ||
            std::fread(buffer.get(), 1, needFile, data) != needFile)
            return bad("cannot read the samples: " + vxfield::systemError());
    } else if (encoding == "gzip" || encoding == "gz") {
        if (byteSkip == -1)
            return bad("\"byte skip: -1\" needs raw encoding");
        if (!readGzip(data, byteSkip, buffer.get(), needFile, why))
            return bad(why);
    } else if (ascii) {
        if (!readAscii(data, buffer.get(), samples, type, why))
            return bad(why);
    } else {
        return bad("encoding \"" + encoding + "\" is not supported");
    }

    if (!ascii) {
        bool fileLittle = true;
        if (const std::string *e = field(h, {"endian"}))
            fileLittle = strcasecmp(e->c_str(), "big") != 0;
        if (fileBytes > 1 && fileLittle != hostIsLittleEndian())
            swapBytes(buffer.get(), samples, fileBytes);
        if (convert) {
            Buffer converted(std::malloc(samples * static_cast<size_t>(type.size())));
            if (!converted)
                return bad("out of memory");
            if (fileBytes == 1) { // int8 -> int16
                const auto *src = static_cast<const int8_t *>(buffer.get());
                auto *dst = static_cast<int16_t *>(converted.get());
                for (size_t i = 0; i < samples; ++i)
                    dst[i] = src[i];
            } else { // double -> float
                const auto *src = static_cast<const double *>(buffer.get());
                auto *dst = static_cast<float *>(converted.get());
                for (size_t i = 0; i < samples; ++i)
                    dst[i] = static_cast<float>(src[i]);
            }
            buffer = std::move(converted);
        }
    }
    if (volumes > 1)
        VxMessage::getTheMsg()->warning("loading %s: only the first of %zu volumes is loaded\n",
                                        path, volumes);

    // Lengths in the unit the parameters ask for, else millimetres.
    double mmPerUnit = 1.0;
    if (const VxParameter *u = params.parameter("UnitLength"))
        if (u->floatValue() > 0.0 && std::isfinite(u->floatValue()))
            mmPerUnit = u->floatValue() * 1000.0;

    std::unique_ptr<VxRegScalarField3> result =
        vxfield::makeField(dims, type, components, buffer.release(), g, mmPerUnit);
    for (int i = 0; i < params.size(); ++i)
        result->parameters().copy(params.entry(i));
    result->setLabel(vxfield::baseName(path));
    return result;
}
