// The request loop: frames in, dispatch, replies out.

#include "QMNativeMessagingHost.h"

#include "ck/CkJsonObject.h"

#include <wx/app.h>
#include <wx/frame.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <stdexcept>
#include <string_view>

namespace {

/// From this length on the size of the receive buffer would not fit 32 bits.
constexpr std::int64_t kMaxMessageBytes = (std::int64_t{1} << 28) - 1;

/// The receive buffer is this many times the message: the rest stays zero and ends the text.
constexpr std::size_t kBufferFactor = 8;

const std::string kErrorPrefix = "QMHost Error: ";

/// The length prefix of a frame, in the machine's byte order.
union U32_U8 {
    std::int64_t u32;
    std::uint8_t u8[4];
};

struct Free {
    void operator()(void* memory) const { std::free(memory); }
};

/// The members of a request, as text; absent ones are empty. Taken out of it: they may be large.
struct InMessage {
    explicit InMessage(CkJsonObject& InData)
        : message(InData.TakeString("text")), action(InData.TakeString("action")),
          hash(InData.TakeString("hash")), CertThumbPrint(InData.TakeString("certThumbPrint")),
          HashAlgorithm(InData.TakeString("hashAlgorithm")), authtoken(InData.TakeString("authToken")),
          PAN(InData.TakeString("PAN")), XmlSignParms(InData.TakeString("xmlSignParms")),
          XmlDoc(InData.TakeString("xmlDoc")) {
        if (HashAlgorithm.empty())
            HashAlgorithm = "SHA256";
        else
            std::erase(HashAlgorithm, '-');
    }

    std::string message, action, hash, CertThumbPrint, HashAlgorithm, authtoken, PAN, XmlSignParms, XmlDoc;
};

/// Which "action" runs which operation. An operation takes the members that it names out of the message.
struct ActionRow {
    const char* action;
    OperationResult (*run)(QMNativeMessagingHost& host, InMessage& in);
};

using Host = QMNativeMessagingHost;

constexpr ActionRow kActionTable[] = {
    {"GetSelCertFromToken", [](Host& host, InMessage&) { return host.GetSelCertFromToken(); }},
    {"GSTReturnSign",
     [](Host& host, InMessage& in) {
         return host.GetGSTReturnSignature(std::move(in.hash), std::move(in.HashAlgorithm));
     }},
    {"ITReturnSign",
     [](Host& host, InMessage& in) {
         return host.GetITReturnSignature(std::move(in.hash), std::move(in.PAN), std::move(in.HashAlgorithm));
     }},
    {"PdfSignFromToken",
     [](Host& host, InMessage& in) {
         return host.GetPdfSignature(std::move(in.hash), in.CertThumbPrint.c_str(),
                                     std::move(in.HashAlgorithm));
     }},
    {"SignAuthToken",
     [](Host& host, InMessage& in) {
         return host.SignAuthToken(std::move(in.authtoken), std::move(in.HashAlgorithm));
     }},
    {"SignXML", [](Host& host,
                   InMessage& in) { return host.SignXML(std::move(in.XmlDoc), std::move(in.XmlSignParms)); }},
};

/// A line of the loop itself, which nothing may end: without memory for it the line is left out.
void LogStep(std::string_view text, LogLevels level) noexcept {
    try {
        if (LogsAt(level))
            LogTextToFile(std::string(text), level);
    } catch (const std::bad_alloc&) {
    }
}

} // namespace

void QMNativeMessagingHost::CheckForInwordMsgFromBrowser() {
    LogStep("In CheckForInwordMsgFromBrowser", DEBUG);
    while (const std::unique_ptr<CkJsonObject> jObj{ReadStdin()}) {
        std::string nonce = jObj->TakeString("nonce");
        OperationResult msgResponse = ProcessInMessage(jObj.get());
        LogStep("ProcessInMessage Returned.", DEBUG);
        LogStep(msgResponse.text, DEBUG);
        ReturnResult(std::move(msgResponse), std::move(nonce));
    }
    LogStep("Exiting ReadStdin Loop and Closing Host Application.", INFO);
    SelCertFrame->Close(true);
    wxYield();
}

CkJsonObject* QMNativeMessagingHost::ReadStdin() {
    LogTextToFile("In ReadStdin()", DEBUG);
    std::unique_ptr<CkJsonObject> jObj;
    try {
        U32_U8 lenBuf;
        lenBuf.u32 = 0;
        const std::size_t iSize = std::fread(lenBuf.u8, 1, sizeof lenBuf.u8, stdin);
        if (iSize != sizeof lenBuf.u8)
            return nullptr;
        LogTextToFile("after iSize == 4", DEBUG);
        const int iLen = static_cast<int>(lenBuf.u32);
        LogTextToFile("BUFFER LEN " + std::to_string(iLen), DEBUG);
        if (iLen <= 0)
            return nullptr;
        LogTextToFile("after iLen > 0", DEBUG);
        if (iLen > kMaxMessageBytes)
            throw std::length_error("a message of " + std::to_string(iLen) + " bytes");
        // calloc, not malloc and memset: the pages that the message does not reach are never touched.
        const std::unique_ptr<char[], Free> jsonMsg(
            static_cast<char*>(std::calloc(static_cast<std::size_t>(iLen), kBufferFactor)));
        if (!jsonMsg)
            throw std::bad_alloc();
        // A short read leaves the text shorter: the zeros end it.
        [[maybe_unused]] const std::size_t received =
            std::fread(jsonMsg.get(), 1, static_cast<std::size_t>(iLen), stdin);
        if (LogsAt(DEBUG))
            LogTextToFile(jsonMsg.get(), DEBUG);
        jObj = std::make_unique<CkJsonObject>();
        jObj->Load(jsonMsg.get());
    } catch (const std::exception& e) {
        Failure("ReadStdin", e);
    }
    return jObj.release();
}

OperationResult QMNativeMessagingHost::ProcessInMessage(CkJsonObject* InData) {
    try {
        InMessage in(*InData);
        const auto row =
            std::find_if(std::begin(kActionTable), std::end(kActionTable),
                         [&](const ActionRow& candidate) { return in.action == candidate.action; });
        if (row != std::end(kActionTable))
            return row->run(*this, in);
        return {false, "echo: " + in.message};
    } catch (const std::exception& e) {
        return Failure("ProcessInMessage", e);
    }
}

void QMNativeMessagingHost::ReturnResult(OperationResult RespData, std::string nonce) try {
    CkJsonObject RespJsonObj;
    try {
        if (RespData.success) {
            RespJsonObj.AppendInt("status_cd", 1);
            RespJsonObj.AppendString("result", std::move(RespData.text));
        } else {
            const std::string resultResp = kErrorPrefix + RespData.text;
            RespJsonObj.AppendInt("status_cd", 0);
            RespJsonObj.AppendString("result", resultResp);
            LogTextToFile(resultResp, DEBUG);
        }
        RespJsonObj.AppendString("nonce", std::move(nonce));

        const std::string RespBytes = RespJsonObj.emit();
        const auto respLen = static_cast<std::uint32_t>(std::strlen(RespBytes.c_str()));
        unsigned char bytes[4];
        for (unsigned i = 0; i < sizeof bytes; ++i)
            bytes[i] = static_cast<unsigned char>(respLen >> (8 * i));
        std::fwrite(bytes, 1, sizeof bytes, stdout);
        std::fwrite(RespBytes.data(), 1, respLen, stdout);
        std::fflush(stdout);
    } catch (const std::exception& e) {
        // No second reply: one may have gone out in part.
        RespJsonObj.AppendInt("status_cd", 0);
        RespJsonObj.AppendString("result", kErrorPrefix + e.what());
        throw;
    }
} catch (const std::exception& e) {
    Failure("ReturnResult", e);
}
