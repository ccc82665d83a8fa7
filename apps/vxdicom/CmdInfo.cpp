// vxdicom info FILE...: what the dicom:: layer reads from each file and a
// decode of every frame (delayed read, frame by frame); then the file as the
// module stores it: the image record of its images (VxDicomImage) and every
// data element as an attribute parameter (VxDicomFile::dicomDataElements),
// Siemens CSA headers decoded into bundles.

#include "apps/vxdicom/SubCommand.h"

#include "platform/core/VxGunzip.h"
#include "platform/core/VxMessage.h"
#include "platform/data/VxParamBundle.h"
#include "platform/dicom/dicom.h"
#include "vxdicom/reader/VxDicom.h"
#include "vxdicom/reader/VxDicomFile.h"
#include "vxdicom/reader/VxDicomImage.h"

#include <QCoreApplication>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <memory>
#include <string>
#include <vector>

namespace vxdicom_cli {
namespace {

struct InfoOptions
{
    bool json = false;
    bool layer = true;      ///< the layer's section and the decode of every frame
    bool decode = true;     ///< decode every frame through the layer
    bool images = true;     ///< the image records
    bool attributes = true; ///< the attribute parameters
    bool allFrames = false; ///< every image of a multi-frame file, not only the first
    int delayed = 1;        ///< how the module reads the file (0: pixels with the header)
};

/// One value of a report, in both output forms: `label` with `text` in the
/// text form, `key` with the JSON value `json` in the JSON form. A row with
/// a null label shows in JSON only, one with a null key in text only.
struct Row
{
    const char *label;
    const char *key;
    std::string text;
    std::string json;
};
using Rows = std::vector<Row>;

// ---- text forms ----------------------------------------------------------

// The shortest decimal form that reads back as the same float, so that
// values print as the file wrote them ("0.7", not "0.699999988").
std::string floatText(float v)
{
    if (!std::isfinite(v))
        return std::isnan(v) ? "nan" : (v > 0 ? "inf" : "-inf");
    char buf[32];
    for (int digits = 6; digits <= 9; ++digits) {
        std::snprintf(buf, sizeof buf, "%.*g", digits, static_cast<double>(v));
        if (std::strtof(buf, nullptr) == v)
            break;
    }
    return buf;
}

std::string vectorText(const float *v, int n, const char *separator = " ")
{
    std::string s;
    for (int i = 0; i < n; ++i)
        s += (i ? separator : "") + floatText(v[i]);
    return s;
}

// ---- JSON forms ----------------------------------------------------------

// Length of the valid UTF-8 sequence at s[i], or 0 when the bytes there are
// not one (overlong forms, surrogates and values above U+10FFFF included).
size_t utf8Length(const std::string &s, size_t i)
{
    const auto at = [&](size_t k) { return static_cast<unsigned char>(s[k]); };
    const unsigned char c = at(i);
    size_t n;
    unsigned cp;
    if (c >= 0xC2 && c <= 0xDF) {
        n = 2;
        cp = c & 0x1Fu;
    } else if (c >= 0xE0 && c <= 0xEF) {
        n = 3;
        cp = c & 0x0Fu;
    } else if (c >= 0xF0 && c <= 0xF4) {
        n = 4;
        cp = c & 0x07u;
    } else {
        return 0;
    }
    if (i + n > s.size())
        return 0;
    for (size_t k = 1; k < n; ++k) {
        if ((at(i + k) & 0xC0u) != 0x80u)
            return 0;
        cp = (cp << 6) | (at(i + k) & 0x3Fu);
    }
    if ((n == 3 && (cp < 0x800 || (cp >= 0xD800 && cp <= 0xDFFF))) || (n == 4 && cp < 0x10000) ||
        cp > 0x10FFFF)
        return 0;
    return n;
}

// A value's text with control characters as escapes (\n, \r, \t, and
// \xHH on the console or \uHHHH in JSON), so that every parameter stays on
// one line; JSON also escapes quotes and backslashes. Parameter texts are
// UTF-8; the raw bytes of a CSA item need not be, and a byte that starts no
// valid UTF-8 sequence is taken as the Latin-1 character it most likely is.
std::string escapedText(const std::string &s, bool json)
{
    std::string out;
    out.reserve(s.size());
    for (size_t i = 0; i < s.size();) {
        const unsigned char c = static_cast<unsigned char>(s[i]);
        if (json && (c == '"' || c == '\\')) {
            out += '\\';
            out += static_cast<char>(c);
        } else if (c == '\n') {
            out += "\\n";
        } else if (c == '\r') {
            out += "\\r";
        } else if (c == '\t') {
            out += "\\t";
        } else if (c < 0x20 || c == 0x7F) {
            char buf[8];
            std::snprintf(buf, sizeof buf, json ? "\\u%04x" : "\\x%02X", c);
            out += buf;
        } else if (c < 0x80) {
            out += static_cast<char>(c);
        } else if (const size_t n = utf8Length(s, i)) {
            out.append(s, i, n);
            i += n;
            continue;
        } else {
            out += static_cast<char>(0xC0 | (c >> 6));
            out += static_cast<char>(0x80 | (c & 0x3F));
        }
        ++i;
    }
    return out;
}

std::string printable(const std::string &s)
{
    return escapedText(s, false);
}

std::string jsonString(const std::string &s)
{
    return "\"" + escapedText(s, true) + "\"";
}

// Non-finite numbers (a position of "nan" reads as one) have no JSON form.
std::string jsonNumber(float v)
{
    return std::isfinite(v) ? floatText(v) : "null";
}

std::string jsonNumber(double v)
{
    if (!std::isfinite(v))
        return "null";
    char buf[32];
    std::snprintf(buf, sizeof buf, "%.17g", v);
    return buf;
}

std::string jsonNumber(int v)
{
    return std::to_string(v);
}

std::string jsonBool(bool v)
{
    return v ? "true" : "false";
}

std::string jsonVector(const float *v, int n)
{
    std::string s = "[";
    for (int i = 0; i < n; ++i)
        s += (i ? ", " : "") + jsonNumber(v[i]);
    return s + "]";
}

std::string jsonObject(const Rows &rows)
{
    std::string s = "{";
    bool first = true;
    for (const Row &r : rows) {
        if (!r.key)
            continue;
        s += (first ? "" : ", ") + jsonString(r.key) + ": " + r.json;
        first = false;
    }
    return s + "}";
}

// A bundle as an array of [name, value] pairs in bundle order: a pair per
// parameter (string, integer or number) and per sub-bundle (a nested array).
// Pairs, not an object: a damaged CSA header may repeat a tag name.
std::string jsonEntry(const VxParamBase &entry);

std::string jsonBundle(const VxParamBundle &bundle)
{
    std::string s = "[";
    for (int i = 0; i < bundle.size(); ++i)
        s += (i ? ", " : "") + jsonEntry(*bundle.entry(i));
    return s + "]";
}

std::string jsonEntry(const VxParamBase &entry)
{
    std::string value;
    if (const VxParamBundle *b = entry.asBundle()) {
        value = jsonBundle(*b);
    } else {
        const auto &p = static_cast<const VxParameter &>(entry);
        switch (p.type()) {
        case VxParameter::Int:
            value = jsonNumber(p.intValue());
            break;
        case VxParameter::Float:
            value = jsonNumber(p.floatValue());
            break;
        case VxParameter::String:
            value = jsonString(p.stringValue());
            break;
        }
    }
    return "[" + jsonString(entry.name()) + ", " + value + "]";
}

// ---- the layer's section -------------------------------------------------

struct StructFree
{
    void operator()(dicom::dicomStruct *d) const { dicom::dicomFree(d); }
};

void layerRows(const dicom::dicomStruct &d, Rows &rows)
{
    rows.push_back(
        {"transfer syntax", nullptr, d.transferSyntaxUID + " (" + d.transferSyntaxName + ")", {}});
    rows.push_back({nullptr, "transferSyntax", {}, jsonString(d.transferSyntaxUID)});
    rows.push_back({nullptr, "transferSyntaxName", {}, jsonString(d.transferSyntaxName)});
    rows.push_back({"rows", "rows", std::to_string(d.rows), jsonNumber(d.rows)});
    rows.push_back({"columns", "columns", std::to_string(d.columns), jsonNumber(d.columns)});
    rows.push_back({"frames", "frames", std::to_string(d.frames), jsonNumber(d.frames)});
    rows.push_back({"bits allocated", "bitsAllocated", std::to_string(d.bitsAllocated),
                    jsonNumber(d.bitsAllocated)});
    rows.push_back({"bytes per sample", "bytesPerSample", std::to_string(d.bytesPerSample),
                    jsonNumber(d.bytesPerSample)});
    rows.push_back({"samples per pixel", "samplesPerPixel", std::to_string(d.samplesPerPixel),
                    jsonNumber(d.samplesPerPixel)});
    rows.push_back({"photometric", "photometric", d.photometric.empty() ? "-" : d.photometric,
                    jsonString(d.photometric)});
    rows.push_back(
        {"elements", "elements", std::to_string(d.numElements), jsonNumber(d.numElements)});
    rows.push_back({"DICOMDIR", "dicomDir", d.isDicomDir ? "yes" : "no", jsonBool(d.isDicomDir)});
}

// Decodes every frame into one frame buffer; "" on success, else the reason.
std::string decodeAll(const dicom::dicomStruct &d, std::string *summary)
{
    if (!d.pixelsInFile) {
        *summary = "none";
        return {};
    }
    if (d.compression == dicom::COMPRESSION_UNSUPPORTED)
        return "transfer syntax " + d.transferSyntaxUID + " cannot be decoded";
    std::vector<unsigned char> frame(size_t(d.frameSize) + 1);
    for (int k = 0; k < d.frames; ++k) {
        std::string why;
        if (!dicom::dicomReadImageData(&d, nullptr, k, frame.data(), frame.size(), &why))
            return d.frames > 1 ? "frame " + std::to_string(k + 1) + ": " + why : why;
    }
    *summary = std::to_string(d.frames) + (d.frames == 1 ? " frame" : " frames") + " decoded";
    return {};
}

// ---- the image record ----------------------------------------------------

Rows imageRows(VxDicomImage &image, int frame)
{
    Rows rows;
    const KcPrimType type = image.primType();
    rows.push_back({nullptr, "frame", {}, jsonNumber(frame)});
    rows.push_back(
        {"size", nullptr, std::to_string(image.width) + " x " + std::to_string(image.height), {}});
    rows.push_back({nullptr, "width", {}, jsonNumber(image.width)});
    rows.push_back({nullptr, "height", {}, jsonNumber(image.height)});
    rows.push_back({"samples per pixel", "samplesPerPixel", std::to_string(image.samplesPerPixel),
                    jsonNumber(image.samplesPerPixel)});
    rows.push_back({"planar config", "planarConfig", std::to_string(image.planarConfig),
                    jsonNumber(image.planarConfig)});
    rows.push_back({"bytes per sample", "bytesPerSample",
                    floatText(image.bytesPerSample) + " (" + type.name() + ")",
                    jsonNumber(image.bytesPerSample)});
    rows.push_back({nullptr, "primType", {}, jsonString(type.name())});
    rows.push_back({"bits stored", "bitsStored", std::to_string(image.bitsStored),
                    jsonNumber(image.bitsStored)});
    rows.push_back({"high bit", "highBit", image.highBit < 0 ? "-" : std::to_string(image.highBit),
                    jsonNumber(image.highBit)});
    rows.push_back({"signed", "isSigned", image.isSigned ? "yes" : "no", jsonBool(image.isSigned)});
    rows.push_back({"data size", "dataSize", std::to_string(image.dataSize) + " bytes",
                    jsonNumber(image.dataSize)});
    // As the file states it: between rows, then between columns.
    const float stated[2] = {image.pixelSpacing[1], image.pixelSpacing[0]};
    rows.push_back({"pixel spacing", "pixelSpacing",
                    vectorText(stated, 2, " x ") + " mm (row, column)", jsonVector(stated, 2)});
    rows.push_back({"slice thickness", "sliceThickness", floatText(image.sliceThickness) + " mm",
                    jsonNumber(image.sliceThickness)});
    rows.push_back({"position",
                    nullptr,
                    image.hasPosition ? vectorText(image.position, 3) + " mm" : "none",
                    {}});
    rows.push_back({nullptr, "hasPosition", {}, jsonBool(image.hasPosition != 0)});
    rows.push_back({nullptr, "position", {}, jsonVector(image.position, 3)});
    rows.push_back({"row direction", "rowDirection", vectorText(image.rowDirection, 3),
                    jsonVector(image.rowDirection, 3)});
    rows.push_back({"column direction", "columnDirection", vectorText(image.columnDirection, 3),
                    jsonVector(image.columnDirection, 3)});
    rows.push_back({"normal", "normal", vectorText(image.normal, 3), jsonVector(image.normal, 3)});
    rows.push_back({"oblique", "oblique", image.oblique ? "yes" : "no", jsonBool(image.oblique)});
    rows.push_back({"slice location", "sliceLocation", floatText(image.sliceLocation) + " mm",
                    jsonNumber(image.sliceLocation)});
    rows.push_back({"rescale",
                    nullptr,
                    "slope " + floatText(image.rescaleSlope) + ", intercept " +
                        floatText(image.rescaleIntercept),
                    {}});
    rows.push_back({nullptr, "rescaleSlope", {}, jsonNumber(image.rescaleSlope)});
    rows.push_back({nullptr, "rescaleIntercept", {}, jsonNumber(image.rescaleIntercept)});
    // Only samples in memory give a range: a delayed read has none yet, and
    // reading them here would change what is reported.
    int lo = 1, hi = 0;
    if (image.dataRange(&lo, &hi))
        rows.push_back({"value range", "valueRange",
                        std::to_string(lo) + " .. " + std::to_string(hi),
                        "[" + std::to_string(lo) + ", " + std::to_string(hi) + "]"});
    else
        rows.push_back({"value range", "valueRange",
                        image.hasPixels() ? "none" : "not known (pixels not read with the header)",
                        "null"});
    rows.push_back({"image number", "imageNumber", std::to_string(image.imageNumber),
                    jsonNumber(image.imageNumber)});
    return rows;
}

// ---- one file ------------------------------------------------------------

/// Everything reported for one file, filled by readReport and printed by
/// printText or printJson.
struct FileReport
{
    std::string path;
    Rows layer; ///< empty when the layer's section was not asked for
    std::vector<std::string> failures;
    std::string console; ///< what the layer and the module printed while reading
    int imageCount = 0;
    std::vector<Rows> images;
    std::unique_ptr<VxParamBundle> attributes;
    bool moduleRead = false; ///< the module's VxDicomFile was made
};

// A thrown text without the line break some of the module's texts end in.
std::string failureText(const char *text)
{
    std::string s = text ? text : "unknown failure";
    while (!s.empty() && (s.back() == '\n' || s.back() == '\r'))
        s.pop_back();
    return s;
}

void readLayer(const char *path, const InfoOptions &options, FileReport &report)
{
    VxGunzip unpacked; // the layer reads packed files as the module does
    std::string parsed = path;
    if (VxGunzip::needsUnpacking(path)) {
        KcString why;
        if (!unpacked.unpack(path, &why)) {
            report.failures.push_back(why);
            return;
        }
        parsed = unpacked.path();
    }
    std::string why;
    const std::unique_ptr<dicom::dicomStruct, StructFree> d(
        dicom::dicomReadFile(parsed.c_str(), 1, &why));
    if (!d) {
        report.failures.push_back(why);
        return;
    }
    layerRows(*d, report.layer);
    if (options.decode) {
        std::string pixels;
        const std::string failure = decodeAll(*d, &pixels);
        report.layer.push_back({"pixels", "pixels", failure.empty() ? pixels : "not decoded",
                                jsonString(failure.empty() ? pixels : "not decoded")});
        if (!failure.empty())
            report.failures.push_back(failure);
    }
}

void readModule(const char *path, const InfoOptions &options, FileReport &report)
{
    std::unique_ptr<VxDicomFile> file;
    try {
        file = std::make_unique<VxDicomFile>(path, 0, options.delayed);
    } catch (const char *text) {
        report.failures.push_back(failureText(text));
        return;
    } catch (const std::exception &e) {
        report.failures.push_back(failureText(e.what()));
        return;
    }
    report.moduleRead = true;
    report.imageCount = file->images.size();
    if (options.images) {
        const int shown = options.allFrames ? report.imageCount : std::min(report.imageCount, 1);
        for (int k = 0; k < shown; ++k)
            report.images.push_back(imageRows(*file->images[k], k + 1));
    }
    if (options.attributes)
        report.attributes = file->dicomDataElements();
}

FileReport readReport(const char *path, const InfoOptions &options)
{
    FileReport report;
    report.path = path;
    VxMessageCapture console;
    if (options.layer) {
        readLayer(path, options, report);
        // A file the layer cannot parse fails the module's read the same way:
        // one report is enough.
        if (report.layer.empty()) {
            report.console = console.text();
            return report;
        }
    }
    readModule(path, options, report);
    report.console = console.text();
    return report;
}

std::vector<std::string> lines(const std::string &text)
{
    std::vector<std::string> out;
    size_t begin = 0;
    while (begin < text.size()) {
        size_t end = text.find('\n', begin);
        if (end == std::string::npos)
            end = text.size();
        if (end > begin)
            out.push_back(text.substr(begin, end - begin));
        begin = end + 1;
    }
    return out;
}

void printRows(const Rows &rows, int indent)
{
    for (const Row &r : rows)
        if (r.label)
            std::printf("%*s%-18s %s\n", indent, "", (std::string(r.label) + ":").c_str(),
                        r.text.c_str());
}

void printBundle(const VxParamBundle &bundle, int indent)
{
    for (int i = 0; i < bundle.size(); ++i) {
        const VxParamBase &e = *bundle.entry(i);
        if (const VxParamBundle *b = e.asBundle()) {
            std::printf("%*s%s:\n", indent, "", printable(e.name()).c_str());
            printBundle(*b, indent + 2);
        } else {
            std::printf("%*s%s = %s\n", indent, "", printable(e.name()).c_str(),
                        printable(static_cast<const VxParameter &>(e).stringValue()).c_str());
        }
    }
}

void printText(const FileReport &r)
{
    std::printf("%s\n", r.path.c_str());
    printRows(r.layer, 2);
    for (const std::string &line : lines(r.console))
        std::printf("  %-18s %s\n", "message:", printable(line).c_str());
    for (const std::string &failure : r.failures)
        std::printf("  %-18s %s\n", "failed:", printable(failure).c_str());
    for (size_t k = 0; k < r.images.size(); ++k) {
        std::printf("  image %zu of %d:\n", k + 1, r.imageCount);
        printRows(r.images[k], 4);
    }
    if (r.images.size() < size_t(r.imageCount) && !r.images.empty())
        std::printf("  (%d more image%s, one per frame or mosaic tile; --all-frames lists "
                    "them)\n",
                    r.imageCount - int(r.images.size()),
                    r.imageCount - r.images.size() == 1 ? "" : "s");
    if (r.attributes) {
        std::printf("  attributes:        %d\n", r.attributes->size());
        printBundle(*r.attributes, 4);
    }
}

void printJson(const FileReport &r, bool first)
{
    std::printf("%s{\n  \"file\": %s,\n  \"ok\": %s", first ? "" : ",\n",
                jsonString(r.path).c_str(), jsonBool(r.failures.empty()).c_str());
    std::string failures = "[";
    for (size_t i = 0; i < r.failures.size(); ++i)
        failures += (i ? ", " : "") + jsonString(r.failures[i]);
    std::printf(",\n  \"failures\": %s]", failures.c_str());
    std::string console = "[";
    const std::vector<std::string> messages = lines(r.console);
    for (size_t i = 0; i < messages.size(); ++i)
        console += (i ? ", " : "") + jsonString(messages[i]);
    std::printf(",\n  \"messages\": %s]", console.c_str());
    if (!r.layer.empty())
        std::printf(",\n  \"layer\": %s", jsonObject(r.layer).c_str());
    if (r.moduleRead) {
        std::printf(",\n  \"imageCount\": %d", r.imageCount);
        if (!r.images.empty() || r.imageCount == 0) {
            std::printf(",\n  \"images\": [");
            for (size_t k = 0; k < r.images.size(); ++k)
                std::printf("%s\n    %s", k ? "," : "", jsonObject(r.images[k]).c_str());
            std::printf("%s]", r.images.empty() ? "" : "\n  ");
        }
        if (r.attributes) {
            std::printf(",\n  \"attributes\": [");
            for (int i = 0; i < r.attributes->size(); ++i)
                std::printf("%s\n    %s", i ? "," : "", jsonEntry(*r.attributes->entry(i)).c_str());
            std::printf("%s]", r.attributes->size() ? "\n  " : "");
        }
    }
    std::printf("\n}");
}

const char kUsage[] = "usage: vxdicom info FILE... [options]\n";

} // namespace

void helpInfo()
{
    std::printf("%s"
                "\n"
                "Prints, for every FILE, what the DICOM layer reads from it (transfer syntax,\n"
                "image size, frames, sample layout, number of elements, DICOMDIR flag) and\n"
                "decodes every frame; then the file as the module stores it: the image record\n"
                "of its images (size, sample layout, pixel spacing, position, row and column\n"
                "directions, normal, oblique flag, slice location, rescale, value range) and\n"
                "every data element as an attribute parameter \"G%%04X-%%04X\" with its text\n"
                "(dictionary name, \" [VR]\" for attributes the dictionary does not know, \": \",\n"
                "value). Siemens CSA headers (0029,1010) and (0029,1020) appear decoded as the\n"
                "bundles \"CSAImageHeaderInfo\" and \"CSASeriesHeaderInfo\", indented below.\n"
                "Messages that the layer or the module print while reading are listed as\n"
                "\"message:\" lines, and why a file could not be read or decoded as \"failed:\".\n"
                "\n"
                "The module reads the header only, as the reader does (the pixels later, when a\n"
                "field is filled), unless DICOM_DELAYED_READ is set to 0 or --read-pixels is\n"
                "given; only then are value ranges known. Multi-frame files have one image per\n"
                "frame; their records differ only in the slice location.\n"
                "\n"
                "options:\n"
                "  --all-frames       print the image record of every frame of a multi-frame\n"
                "                     file and every tile of a mosaic (default: the first,\n"
                "                     and the number of images)\n"
                "  --no-attributes    leave out the attribute parameters\n"
                "  --attributes-only  print only the attribute parameters (no layer section,\n"
                "                     no frame decoding, no image records)\n"
                "  --no-decode        do not decode the frames through the layer\n"
                "  --read-pixels      let the module read the pixels with the header (as\n"
                "                     DICOM_DELAYED_READ=0), so that value ranges are known\n"
                "  --json             one JSON array with an object per file: \"file\", \"ok\",\n"
                "                     \"failures\", \"messages\", \"layer\" (an object),\n"
                "                     \"imageCount\", \"images\" (objects keyed by the image\n"
                "                     record's fields: frame, width, height, bitsStored,\n"
                "                     samplesPerPixel, pixelSpacing [row, column], hasPosition,\n"
                "                     position, rowDirection, columnDirection, normal, oblique,\n"
                "                     sliceLocation, rescaleSlope, rescaleIntercept, valueRange\n"
                "                     [min, max] or null, ...) and \"attributes\" ([name, value]\n"
                "                     pairs in order; the value of a bundle is again an array of\n"
                "                     pairs)\n"
                "  --                 end of options\n"
                "\n"
                "Exit status 0 when every file was read (and decoded), 1 otherwise (each\n"
                "failure is reported as \"reading FILE failed: REASON\" on standard error, and\n"
                "the other files are still processed), 2 for a usage error.\n"
                "\n"
                "Transfer syntaxes decoded:\n",
                kUsage);
    const std::string syntaxes = dicom::dicomSupportedTransferSyntaxes();
    size_t begin = 0;
    while (begin < syntaxes.size()) {
        const size_t end = syntaxes.find('\n', begin);
        std::printf("  %s\n", syntaxes.substr(begin, end - begin).c_str());
        if (end == std::string::npos)
            break;
        begin = end + 1;
    }
}

int runInfo(int argc, char **argv)
{
    InfoOptions options;
    options.delayed = dicomDelayedReadEnabled() ? 1 : 0;
    bool noAttributes = false;
    bool attributesOnly = false;
    std::vector<const char *> files;
    bool optionsEnd = false;
    for (int i = 1; i < argc; ++i) {
        const char *a = argv[i];
        if (optionsEnd || a[0] != '-' || a[1] == '\0') {
            files.push_back(a);
        } else if (std::strcmp(a, "--") == 0) {
            optionsEnd = true;
        } else if (std::strcmp(a, "--json") == 0) {
            options.json = true;
        } else if (std::strcmp(a, "--all-frames") == 0) {
            options.allFrames = true;
        } else if (std::strcmp(a, "--no-attributes") == 0) {
            noAttributes = true;
        } else if (std::strcmp(a, "--attributes-only") == 0) {
            attributesOnly = true;
        } else if (std::strcmp(a, "--no-decode") == 0) {
            options.decode = false;
        } else if (std::strcmp(a, "--read-pixels") == 0) {
            options.delayed = 0;
        } else {
            std::fprintf(stderr, "vxdicom info: unknown option '%s'\n", a);
            return 2;
        }
    }
    if (noAttributes && attributesOnly) {
        std::fprintf(stderr, "vxdicom info: --no-attributes and --attributes-only exclude "
                             "each other\n");
        return 2;
    }
    if (files.empty()) {
        std::fprintf(stderr, "%s", kUsage);
        return 2;
    }
    options.attributes = !noAttributes;
    if (attributesOnly) {
        options.layer = false;
        options.decode = false;
        options.images = false;
    }

    QCoreApplication app(argc, argv);
    dicom::dicomInitialize();
    bool ok = true;
    bool printed = false;
    if (options.json)
        std::printf("[\n");
    for (size_t i = 0; i < files.size(); ++i) {
        const FileReport report = readReport(files[i], options);
        for (const std::string &failure : report.failures)
            std::fprintf(stderr, "reading %s failed: %s\n", files[i], failure.c_str());
        ok = ok && report.failures.empty();
        if (options.json) {
            printJson(report, i == 0);
        } else if (!report.layer.empty() || report.moduleRead) {
            if (printed)
                std::printf("\n");
            printText(report);
            printed = true;
        }
        std::fflush(stdout);
    }
    if (options.json)
        std::printf("\n]\n");
    return ok ? 0 : 1;
}

} // namespace vxdicom_cli
