// Broken real files, absurd memory claims and fuzz findings, loaded beside an intact series; the
// edits use the test's own element walk, not the reader they break.

#include "platform/core/VxMessage.h"
#include "platform/core/VxObjectPool.h"
#include "platform/data/VxField3.h"
#include "platform/data/VxLattice3.h"
#include "platform/dicom/dicom.h"
#include "tests/support/TestSupport.h"
#include "vxdicom/browser/DicomDialog.h"
#include "vxdicom/reader/DicomDir.h"
#include "vxdicom/reader/VxDicom.h"
#include "vxdicom/reader/VxDicomFile.h"
#include "vxdicom/stacks/DicomLoadOption.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string_view>

size_t largestAllocation(); // since the last reset
void resetLargestAllocation();

using namespace vxtest;
namespace {

namespace fs = std::filesystem;
using Bytes = std::vector<unsigned char>;

constexpr size_t kAllowedAllocation = size_t(256) << 20;
const char *const kSeriesDir = "dcm_qa_sag/In/2_gre_field_mapping";   // 5 slices, 64 x 42
const char *const kSource = "dcm_qa_decubitus/In/HFDR/2_t1_fl2d_sag/" // with CSA, 256 x 256
                            "0001_1.3.12.2.1107.5.2.43.67060.2022040715140258030663181.dcm";

// Little-endian values of n bytes (this host is little endian, as the files).
const auto read = [](const Bytes &b, size_t at, size_t n) {
    uint32_t v = 0;
    return std::memcpy(&v, &b.at(at + n - 1) - (n - 1), n), v;
};
const auto put = [](Bytes &b, size_t at, uint32_t v, size_t n) {
    std::memcpy(&b.at(at + n - 1) - (n - 1), &v, n);
};
Bytes operator+(Bytes a, const Bytes &b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a; // moved out
}
const auto le = [](uint32_t v, size_t n) {
    Bytes b(n);
    return put(b, 0, v, n), b;
};
const auto text = [](std::string s) { // padded with a blank to an even length
    return s.resize(s.size() + s.size() % 2, ' '), Bytes(s.begin(), s.end());
};
const auto longForm = [](const char *vr) { // two reserved bytes and a 32-bit length
    return std::string("OBODOFOLOVOWSQSVUCUNURUTUV").find(std::string(vr, 2)) % 2 == 0;
};

struct Element
{
    size_t offset = 0, lengthField = 0, lengthSize = 0, value = 0;
    uint32_t length = 0;
};

/// The element with that tag, or with `orNext` the first after where it would be; else throws.
const auto findElement = [](const Bytes &file, uint16_t group, uint16_t element,
                            bool orNext = false) {
    for (size_t pos = 132; pos + 8 <= file.size();) {
        Element e;
        const uint32_t tag = read(file, pos, 2) << 16 | read(file, pos + 2, 2);
        e.offset = pos,
        e.lengthSize = longForm(reinterpret_cast<const char *>(&file[pos + 4])) ? 4 : 2;
        e.lengthField = pos + (e.lengthSize == 4 ? 8 : 6);
        e.length = read(file, e.lengthField, e.lengthSize), e.value = e.lengthField + e.lengthSize;
        if (const uint32_t wanted = uint32_t(group) << 16 | element; tag >= wanted)
            return orNext || tag == wanted ? e
                                           : throw std::runtime_error("element not in the file");
        pos = e.value + e.length;
    }
    throw std::runtime_error("element not in the file");
};
const auto withLength = [](Bytes file, uint16_t group, uint16_t element, uint32_t length) {
    const Element e = findElement(file, group, element);
    return put(file, e.lengthField, length, e.lengthSize), file;
};
const auto withUS = [](Bytes file, uint16_t group, uint16_t element, uint16_t value) {
    return put(file, findElement(file, group, element).value, value, 2), file;
};
const auto withImage = [](Bytes file, uint16_t rows, uint16_t columns, uint16_t samples) {
    file = withUS(withUS(file, 0x0028, 0x0010, rows), 0x0028, 0x0011, columns);
    file = withUS(withUS(file, 0x0028, 0x0002, samples), 0x0028, 0x0100, 8);
    return withUS(withUS(file, 0x0028, 0x0101, 8), 0x0028, 0x0102, 7);
};

/// One element (length 0xFFFFFFFF when undefined; no delimiter added).
const auto encodeElement = [](uint16_t group, uint16_t element, const char *vr, const Bytes &value,
                              bool undefinedLength = false) {
    const uint32_t length = undefinedLength ? 0xFFFFFFFFu : uint32_t(value.size());
    return le(uint32_t(element) << 16 | group, 4) + Bytes(vr, vr + 2) +
           (longForm(vr) ? le(0, 2) + le(length, 4) : le(length, 2)) + value;
};
const auto encodeItem = [](const Bytes &content, bool undefinedLength = false,
                           uint16_t tag = 0xE000) {
    return le(uint32_t(tag) << 16 | 0xFFFE, 4) +
           le(undefinedLength ? 0xFFFFFFFFu : uint32_t(content.size()), 4) + content;
};
const auto insertedBefore = [](Bytes file, uint16_t group, uint16_t element, const Bytes &add) {
    const long at = long(findElement(file, group, element, true).offset);
    return file.insert(file.begin() + at, add.begin(), add.end()), file;
};

/// A private creator and `depth` nested private sequences; with `depth` < 0 one sequence and
/// item of undefined length without either delimiter.
const auto nestedSequences = [](int depth, bool undefinedLengths) {
    const Bytes creator = encodeElement(0x0071, 0x0010, "LO", text("VXTEST HOSTILE"));
    Bytes body = encodeElement(0x0071, 0x1002, "LO", text("innermost"));
    if (depth < 0)
        return creator + encodeElement(0x0071, 0x1001, "SQ", encodeItem(body, true), true);
    if (!undefinedLengths) {
        for (int i = 0; i < depth; ++i)
            body = encodeElement(0x0071, 0x1001, "SQ", encodeItem(body));
        return creator + body;
    }
    Bytes b = creator;
    const Bytes open = encodeElement(0x0071, 0x1001, "SQ", encodeItem({}, true), true),
                close = encodeItem({}, false, 0xE00D) + encodeItem({}, false, 0xE0DD);
    for (int i = 0; i < 2 * depth + 1; ++i) // moved, not copied: 100,001 parts
        b = std::move(b) + (i < depth ? open : i == depth ? body : close);
    return b;
};

const auto part10File = [](const std::string &sopClass, const std::string &syntax,
                           const Bytes &dataSet) {
    Bytes meta = encodeElement(0x0002, 0x0001, "OB", {0, 1});
    for (const auto &[element, uid] :
         {std::pair(0x0002, sopClass), std::pair(0x0003, std::string("1.2.3")),
          std::pair(0x0010, syntax)})
        meta = meta + encodeElement(0x0002, uint16_t(element), "UI",
                                    Bytes(uid.begin(), uid.end()) + Bytes(uid.size() % 2, 0));
    return Bytes(128, 0) + Bytes{'D', 'I', 'C', 'M'} +
           encodeElement(0x0002, 0x0000, "UL", le(uint32_t(meta.size()), 4)) + meta + dataSet;
};

/// Raw deflate: the zlib stream without its 2-byte header and 4-byte Adler-32.
const auto deflate = [](const Bytes &data) {
    uLongf n = compressBound(uLong(data.size()));
    Bytes out(n);
    if (compress2(out.data(), &n, data.data(), uLong(data.size()), 6) != Z_OK)
        throw std::runtime_error("deflate");
    return Bytes(out.begin() + 2, out.begin() + long(n) - 4);
};

struct LoadOutcome
{
    std::string console;
    std::vector<std::string> fields; ///< "5 x 42 x 64, 2 bytes, samples HASH"
};

/// vxReadDicom silently, header only (delayed) or with every pixel at once.
LoadOutcome loadFiles(const std::vector<std::string> &names, bool delayed)
{
    registerDicomImportDialog();
    ScopedEnv env("DICOM_DELAYED_READ", delayed ? "1" : "0");
    VxObjectPool::instance()->clear();
    std::vector<const char *> argv;
    for (const std::string &n : names)
        argv.push_back(n.c_str());
    LoadOutcome out;
    KcDArray<VxField3 *> fields;
    {
        VxMessageCapture capture;
        vxReadDicom(int(argv.size()), argv.data(), fields, 0, true);
        out.console = capture.text();
    }
    for (const VxField3 *field : fields) {
        const VxLattice3 *lat = field->lattice();
        const std::string_view samples(static_cast<const char *>(lat->data()), lat->numBytes());
        out.fields.push_back(KcString::format("%d x %d x %d, %d bytes, samples %zu", lat->dim(0),
                                              lat->dim(1), lat->dim(2), lat->voxelBytes(),
                                              std::hash<std::string_view>{}(samples)));
    }
    VxObjectPool::instance()->clear();
    return out;
}

const auto failureLine = [](const std::string &console, const std::string &name) {
    const size_t at = ("\n" + console).find("\nreading " + name + " failed: ");
    return at == std::string::npos ? "" : console.substr(at, console.find('\n', at) - at);
};

class BrokenFiles : public ::testing::Test
{
protected:
    void SetUp() override
    {
        VX_REQUIRE_SHARED_DATA();
        series = sharedDicomFiles(kSeriesDir);
        source = shared(kSource);
        for (bool delayed : {true, false}) {
            const LoadOutcome alone = loadFiles(series, delayed);
            ASSERT_EQ(alone.fields.size(), 1u) << alone.console;
            seriesField[delayed] = alone.fields[0];
        }
        ASSERT_EQ(seriesField[true], seriesField[false]) << "samples differ by reading mode";
    }

    std::string write(const std::string &name, const Bytes &bytes)
    {
        return writeFileBytes(dir.file(name), bytes), dir.file(name);
    }
    static Bytes shared(const std::string &n) { return readFileBytes(sharedPath(n)); }

    // Every kind of broken file made from real ones: (path, what its refusal says; "@": the path).
    std::vector<std::pair<std::string, std::string>> brokenFiles()
    {
        const Element pixels = findElement(source, 0x7FE0, 0x0010);
        const Bytes withSequence =
            insertedBefore(source, 0x0071, 0x0010, nestedSequences(3, false));
        Bytes shortPixels = withLength(source, 0x7FE0, 0x0010, pixels.length / 2);
        shortPixels.resize(pixels.value + pixels.length / 2);
        const std::string extract = "cannot extract DICOM information from: ",
                          tooDeep = "sequences nested too deep to be read safely",
                          huge = "a frame of 65535x65535 pixels is too large";
        // 3 GB claimed in a deflated data set; the fuzzer's claim of 0xBDBDBDBD.
        Bytes claim = encodeElement(0x0009, 0x1001, "OB", Bytes(8, 0xBD));
        put(claim, 8, 0xC0000000u, 4);
        const Bytes dataSet = encodeElement(0x0008, 0x0060, "CS", text("MR")) +
                              encodeElement(0x0009, 0x0010, "LO", text("VXTEST")) + claim;
        std::vector<std::tuple<std::string, Bytes, std::string>> rows = {
            {"csa4g.dcm", withLength(source, 0x0029, 0x1010, 0xFFFFFFF0u), "premature end of file"},
            {"pixels_past_end.dcm",
             withLength(source, 0x7FE0, 0x0010, uint32_t(source.size() - pixels.value + 2)),
             "(7FE0,0010) pixel data are truncated"},
            {"name64k.dcm", withLength(source, 0x0010, 0x0010, 0xFFFE), extract},
            {"sequence4g.dcm", withLength(withSequence, 0x0071, 0x1001, 0xFFFFFFF0u), extract},
            {"open.dcm", insertedBefore(source, 0x0071, 0x0010, nestedSequences(-1, true)),
             extract + "@"},
            {"deep50000.dcm", insertedBefore(source, 0x0071, 0x0010, nestedSequences(50000, true)),
             tooDeep},
            {"rle_deep_tail.dcm", shared("dcm_qa_ts/In/4.dcm") + nestedSequences(50000, true),
             tooDeep},
            {"rows0.dcm", withUS(source, 0x0028, 0x0010, 0), "(0028,0010) rows is 0"},
            {"rows65535.dcm", withUS(source, 0x0028, 0x0010, 65535), "(7FE0,0010) pixel data hold"},
            {"bits12.dcm", withUS(source, 0x0028, 0x0100, 12), "(0028,0100) bits allocated is 12"},
            {"samples2.dcm", withUS(withUS(source, 0x0028, 0x0010, 128), 0x0028, 0x0002, 2),
             "unsupported number of samples."},
            {"shortpixels.dcm", shortPixels, "(7FE0,0010) pixel data hold"},
            {"plain.dcm.gz", source, "cannot open: @"},
            {"noise.dcm.Z", {0x1F, 0x9D, 0x90, 0xFF, 0xFF}, "cannot open: @"},
            // 65535 x 65535 pixels of four samples, native, RLE, JPEG-LS, JPEG 2000.
            {"huge_native.dcm", withImage(source, 65535, 65535, 4), huge},
            {"claim_deflated.dcm",
             part10File("1.2.840.10008.5.1.4.1.1.4", "1.2.840.10008.1.2.1.99", deflate(dataSet)),
             extract},
            {"fuzz_oom.dcm",
             {8,    0,    0,    0,    0,    0,    0,    0,    0xBD, 0x55, 0x53,
              0xBD, 0xBD, 0xBD, 0xBD, 0xBD, 0xBD, 0xBD, 0xBD, 0xBD, 0xBD},
             extract},
        };
        // RLE frames of 1 GiB from 66-byte fragments: one segment, one replicate run.
        for (int frames : {1, 64}) {
            Bytes file = withImage(shared("dcm_qa_ts/In/4.dcm"), 32768, 32768, 1);
            if (frames > 1)
                file = insertedBefore(file, 0x0028, 0x0010,
                                      encodeElement(0x0028, 0x0008, "IS", text("64")));
            file.resize(findElement(file, 0x7FE0, 0x0010).value);
            file = file + encodeItem({}); // empty offset table
            Bytes frame(66, 0);
            put(frame, 0, 1, 4), put(frame, 4, 64, 4), frame[64] = 0x81;
            for (int k = 0; k < frames; ++k)
                file = file + encodeItem(frame);
            rows.push_back({"rle" + std::to_string(frames) + ".dcm",
                            file + encodeItem({}, false, 0xE0DD),
                            "RLE data of " + std::to_string(66 * frames) + " bytes cannot hold " +
                                std::to_string(frames) + " frame(s) of 1073741824 bytes"});
        }
        // Frames that decode to fewer rows than claimed, a broken JPEG codestream.
        Bytes jpeg = shared("dcm_qa_ts/In/5.dcm");
        const unsigned char soi[] = {0xFF, 0xD8, 0xFF};
        std::fill_n(std::search(jpeg.begin() + 1000, jpeg.end(), soi, soi + 3), 3, 0);
        rows.push_back({"badjpeg.dcm", jpeg, ""});
        rows.push_back({"cut1000.dcm", Bytes(source.begin(), source.begin() + 1000), ""});
        for (const std::string name : {"4.dcm", "7.dcm", "9.dcm"}) {
            rows.push_back({"taller_" + name,
                            withUS(shared("dcm_qa_ts/In/" + name), 0x0028, 0x0010, 400), ""});
            rows.push_back(
                {"huge_" + name, withImage(shared("dcm_qa_ts/In/" + name), 65535, 65535, 4), huge});
        }
        std::vector<std::pair<std::string, std::string>> files;
        for (const auto &[name, bytes, reason] : rows)
            files.push_back({write(name, bytes), reason});
        fs::create_directory(dir.file("folder.dcm"));
        fs::create_symlink(dir.file("nowhere.dcm"), dir.file("dangling.dcm"));
        for (const auto &[name, reason] :
             {std::pair<const char *, std::string>{"folder.dcm", extract + "@ (is a directory)"},
              {"dangling.dcm", "cannot open: @ (No such file or directory)"},
              {"missing.dcm", "cannot open: @ (No such file or directory)"}})
            files.push_back({dir.file(name), reason});
        for (auto &[name, reason] : files)
            if (const size_t at = reason.find('@'); at != std::string::npos)
                reason.replace(at, 1, name);
        return files;
    }

    TempDir dir; // made before TMPDIR points at the watched folder
    TempDir temp;
    ScopedEnv tmpdir{"TMPDIR", temp.path().c_str()};
    std::vector<std::string> series;
    Bytes source;
    std::string seriesField[2];
};

// Also cuts at every 97th byte, a 1 MiB memory limit, valid 1,000-deep sequences; no temp left.
TEST_F(BrokenFiles, EveryKindOfBrokenFileAndEveryCutIsRefusedByNameAndTheSeriesStillLoads)
{
    const auto broken = brokenFiles();
    std::vector<std::string> names = series, cuts;
    const auto big = sharedDicomFiles("dcm_qa_decubitus/In/HFDR/2_t1_fl2d_sag");
    ASSERT_EQ(big.size(), 35u);
    const std::string enhanced = sharedPath("dcm_qa_canon_61/In/enh/8000.dcm");
    for (const auto &b : broken)
        names.push_back(b.first);
    for (size_t n = 0; n < source.size(); n += 97)
        cuts.push_back(write("cut" + std::to_string(n) + ".dcm",
                             Bytes(source.begin(), source.begin() + long(n))));
    names.insert(names.end(), cuts.begin(), cuts.end());
    names.insert(names.end(), big.begin(), big.end());
    names.push_back(enhanced);
    for (bool undefined : {true, false})
        names.push_back(
            write(undefined ? "deep1000u.dcm" : "deep1000d.dcm",
                  insertedBefore(source, 0x0071, 0x0010, nestedSequences(1000, undefined))));
    Bytes meta = source; // a meta group length claiming the whole file loads as the source
    const Element groupLength = findElement(meta, 0x0002, 0x0000);
    put(meta, groupLength.value, uint32_t(meta.size() - groupLength.value - 4), 4);
    names.push_back(write("meta.dcm", meta));
    const size_t pixelStart = findElement(source, 0x7FE0, 0x0010).offset;
    resetLargestAllocation(); // the watch sees a request it cannot miss
    void *volatile p = std::malloc(kAllowedAllocation + 1);
    std::free(p);
    EXPECT_GE(largestAllocation(), kAllowedAllocation + 1);
    const std::shared_ptr<void> unlimited(nullptr, [](void *) { dicom::dicomSetMemoryLimit(0); });
    for (bool delayed : {true, false}) {
        SCOPED_TRACE(delayed ? "header only" : "all pixels");
        const std::string plain = loadFiles({sharedPath(kSource)}, delayed).fields.at(0);
        dicom::dicomSetMemoryLimit(uint64_t(1) << 20);
        resetLargestAllocation();
        const LoadOutcome mixed = loadFiles(names, delayed);
        dicom::dicomSetMemoryLimit(0);
        EXPECT_LT(largestAllocation(), 4587520u) << "a refused volume was allocated";
        for (const auto &[name, reason] : broken) {
            const std::string line = failureLine(mixed.console, name);
            EXPECT_TRUE(!line.empty() && line.find(reason) != std::string::npos)
                << name << ": \"" << reason << "\" expected in \"" << line << "\"";
        }
        EXPECT_NE(mixed.console.find("its samples need 4587520 bytes, more than the memory "
                                     "limit of 1048576 bytes"),
                  std::string::npos)
            << mixed.console;
        EXPECT_TRUE(delayed || failureLine(mixed.console, enhanced)
                                       .find("520 frame(s) of 12800 bytes exceed the memory "
                                             "limit of 1048576") != std::string::npos);
        int readWithoutImage = 0;
        for (size_t i = 0; i < cuts.size(); ++i) {
            if (!failureLine(mixed.console, cuts[i]).empty())
                continue;
            EXPECT_NE(("\n" + mixed.console).find("\n+ " + cuts[i] + "\n"), std::string::npos)
                << cuts[i] << " is not reported";
            EXPECT_NE(mixed.console.find("Warning: " + cuts[i] + " holds no pixel data"),
                      std::string::npos);
            EXPECT_LT(i * 97, pixelStart) << cuts[i] << " read";
            ++readWithoutImage;
        }
        EXPECT_LT(readWithoutImage, 5) << "cuts are refused, with few exceptions";
        std::vector<std::string> fields = mixed.fields,
                                 expected = {seriesField[delayed], plain, plain, plain};
        std::erase_if(fields, [&](auto &f) { return delayed && f.starts_with("80 x 80 x 40,"); });
        std::sort(fields.begin(), fields.end()), std::sort(expected.begin(), expected.end());
        EXPECT_EQ(fields, expected) << mixed.console;
        EXPECT_TRUE(fs::is_empty(temp.path()));
    }
}

// The command line names every broken file (the bad JPEG also alone), loads the series, status 1.
TEST_F(BrokenFiles, CommandLineFailsOnEveryKindOfBrokenFileAndStillLoadsTheSeries)
{
    std::vector<std::string> broken, badPixels;
    for (const auto &b : brokenFiles()) // a folder is an input folder here
        if (!b.first.ends_with("folder.dcm"))
            (b.first.ends_with("badjpeg.dcm") ? badPixels : broken).push_back(b.first);
    broken.push_back(badPixels[0]);
    for (const auto &set : {broken, badPixels})
        for (const char *mode : {"", "DICOM_DELAYED_READ=0 "}) {
            SCOPED_TRACE(mode + std::to_string(set.size()));
            std::string load = "load -nodialog";
            for (const auto &names : {series, set})
                for (const std::string &name : names)
                    load += " " + shellQuote(name);
            const auto r = runVxdicom(load, {}, "TMPDIR=" + temp.path().string() + " " + mode);
            EXPECT_EQ(r.status, 1) << r.err;
            for (const std::string &name : set)
                EXPECT_FALSE(failureLine(r.err, name).empty()) << name << ":\n" << r.err;
            EXPECT_EQ(r.out.find("failed"), std::string::npos) << r.out;
            EXPECT_EQ(r.out.find("field \""), r.out.rfind("field \"")) << "one field:\n" << r.out;
            EXPECT_NE(r.out.find(": 5 x 42 x 64 int16"), std::string::npos) << r.out;
            EXPECT_EQ((r.out + r.err).find("Sanitizer"), std::string::npos);
            EXPECT_EQ((r.out + r.err).find("runtime error"), std::string::npos);
            EXPECT_TRUE(fs::is_empty(temp.path()));
        }
}

// Fuzz findings: policy numbers outside the enumeration; over-long, nested or no DICOMDIR records.
TEST(FuzzRegression, PolicyNumbersAndDicomDirRecordTypes)
{
    DicomLoadOption option;
    ASSERT_TRUE(option.fromString("1|2|1444444|4|x"));
    EXPECT_EQ(DicomLoadOption::description(option.value), "unused");
    EXPECT_EQ(option.toString(), "<1|2|1444444|4|x>");
    ASSERT_TRUE(option.fromString("-1|-1|-7|23|load index"));
    EXPECT_EQ(static_cast<int>(option.value), -7);
    EXPECT_EQ(option.getOption(3), DicomLoadOption::Linear);

    auto dicomDir = [](const Bytes &records) {
        return part10File("1.2.840.10008.1.3.10", "1.2.840.10008.1.2.1",
                          encodeElement(0x0004, 0x1130, "CS", {}) +
                              encodeElement(0x0004, 0x1200, "UL", le(0, 4)) +
                              encodeElement(0x0004, 0x1202, "UL", le(0, 4)) +
                              encodeElement(0x0004, 0x1212, "US", le(0, 2)) +
                              encodeElement(0x0004, 0x1220, "SQ", records));
    };
    auto record = [](const char *type, const Bytes &more) {
        return encodeItem(encodeElement(0x0004, 0x1400, "UL", le(0, 4)) +
                          encodeElement(0x0004, 0x1410, "US", le(0xFFFF, 2)) +
                          encodeElement(0x0004, 0x1420, "UL", le(0, 4)) +
                          encodeElement(0x0004, 0x1430, "CS", text(type)) +
                          encodeElement(0x0004, 0x1500, "CS", text("IMAGES\\IM000001")) + more);
    };
    const Bytes inner = encodeElement(
        0x0004, 0x1220, "SQ",
        encodeItem(encodeElement(0x0004, 0x1430, "CS", text("IMAGE\\SERIESSERIESSERIES"))));
    TempDir dir;
    for (const auto &[name, bytes, n] :
         {std::tuple("DICOMDIR", dicomDir(record("PATIENTPATIENTPATIENT", {})), 2),
          std::tuple("NESTED", dicomDir(record("IMAGE", inner)), 2),
          std::tuple("EMPTY", dicomDir({}), 1)}) {
        SCOPED_TRACE(name);
        const std::string path = dir.file(name);
        writeFileBytes(path, bytes);
        VxDicomFile file(path.c_str(), 0, 1);
        ASSERT_TRUE(file.isDicomDir());
        EXPECT_NE(dicom::dicomFindElement(file.data, 0x0004, 0x1220), nullptr);
        EXPECT_EQ(dicom::dicomFindElement(file.data, 0x0004, 0x1221), nullptr);
        KcDArray<KcString> names;
        names.append(path);
        EXPECT_EQ(extractDicomDir(&file, names), n);
        EXPECT_EQ(names.last(), n == 2 ? dir.file("IMAGES/IM000001") : path);
    }
}

} // namespace
