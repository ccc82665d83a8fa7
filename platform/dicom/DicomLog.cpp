// One-time set-up of DCMTK for the layer: its log goes to the host console,
// the decoders are registered, and the parser accepts the encodings real
// files use.

#include "platform/dicom/DicomInternal.h"

#include "platform/core/VxMessage.h"

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dcdict.h"
#include "dcmtk/dcmdata/dcobject.h"
#include "dcmtk/dcmdata/dcrledrg.h"
#include "dcmtk/dcmjpeg/djdecode.h"
#include "dcmtk/dcmjpls/djdecode.h"
#include "dcmtk/oflog/appender.h"
#include "dcmtk/oflog/logger.h"
#include "dcmtk/oflog/oflog.h"
#include "dcmtk/oflog/spi/logevent.h"

#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace dicom {
namespace {

namespace lg = dcmtk::log4cplus;

void toConsole(bool error, const std::string &text)
{
    if (error)
        VxMessage::getTheMsg()->error("DCMTK: %s\n", text.c_str());
    else
        VxMessage::getTheMsg()->warning("DCMTK: %s\n", text.c_str());
}

// Hands DCMTK's log events to the console: warnings as warnings, errors and
// worse as errors. Nothing reaches stderr directly.
class ConsoleAppender : public lg::Appender
{
public:
    ~ConsoleAppender() override { destructorImpl(); }
    void close() override { closed = true; }

protected:
    void append(const lg::spi::InternalLoggingEvent &event) override
    {
        const lg::tstring &message = event.getMessage();
        // The header parse asks DCMTK to stop at Pixel Data; it says so.
        if (std::strstr(message.c_str(), "encountered, skipping rest of dataset"))
            return;
        // An implicit VR data set behind an explicit VR meta header: DCMTK
        // says so for every element; the layer reports the data set as
        // implicit instead.
        if (std::strstr(message.c_str(), "trying again with Implicit VR Little Endian"))
            return;
        // The layer tells DCMTK to read the meta header by its group number
        // (dicomInitialize); DCMTK says so for every file.
        if (std::strstr(message.c_str(), "Ignoring Group Length of Meta Information Header"))
            return;
        // The Directory Record Sequence reaches DCMTK under a stand-in tag
        // (DicomRead.cpp, SourceProducer::read); messages name its own.
        std::string text = message;
        for (const char *standIn : {"Unknown Tag & Data (0004,1221)", "(0004,1221)"})
            for (size_t at; (at = text.find(standIn)) != std::string::npos;)
                text.replace(at, std::strlen(standIn), "DirectoryRecordSequence (0004,1220)");
        const bool error = event.getLogLevel() >= lg::ERROR_LOG_LEVEL;
        toConsole(error, text);
    }
};

// Deregisters the decoders when the process ends.
struct CodecRegistration
{
    CodecRegistration()
    {
        DcmRLEDecoderRegistration::registerCodecs();
        // Colour JPEG frames come back in the colour model the photometric
        // interpretation implies (YBR_FULL and YBR_FULL_422 as RGB) and always
        // colour-by-pixel, so the layout of decoded frames is known before
        // decoding.
        DJDecoderRegistration::registerCodecs(EDC_photometricInterpretation, EUC_never,
                                              EPC_colorByPixel);
        DJLSDecoderRegistration::registerCodecs(EJLSUC_never, EJLSPC_colorByPixel);
    }
    ~CodecRegistration()
    {
        DJLSDecoderRegistration::cleanup();
        DJDecoderRegistration::cleanup();
        DcmRLEDecoderRegistration::cleanup();
    }
};

} // namespace

void dicomInitialize()
{
    static std::once_flag once;
    std::call_once(once, [] {
        OFLog::configure(OFLogger::WARN_LOG_LEVEL);
        lg::Logger root = lg::Logger::getRoot();
        root.removeAllAppenders();
        root.addAppender(lg::SharedAppenderPtr(new ConsoleAppender));
        root.setLogLevel(lg::WARN_LOG_LEVEL);

        // Some writers put an implicit VR data set behind an explicit VR meta
        // header; DCMTK reads those only when told to.
        dcmAcceptUnexpectedImplicitEncoding.set(OFTrue);
        // The meta header is group 0002 and nothing else (PS3.10 7.1): a
        // wrong group length must not make DCMTK read the data set, pixel
        // data included, as part of it.
        dcmIgnoreFileMetaInformationGroupLength.set(OFTrue);

        static CodecRegistration codecs;
    });
}

void dicomLoadDictionaryAhead()
{
    struct Loader
    {
        std::thread thread;
        ~Loader()
        {
            if (thread.joinable())
                thread.join();
        }
    };
    static Loader loader;
    static std::once_flag once;
    std::call_once(once, [] {
        loader.thread = std::thread([] {
            dicomInitialize();
            dcmDataDict.rdlock();
            dcmDataDict.rdunlock();
        });
    });
}

} // namespace dicom
