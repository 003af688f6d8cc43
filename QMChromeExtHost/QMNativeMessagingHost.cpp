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

/// The text of a member, empty when it is absent. Taken out of the object: it may be large.
std::string TakeText(CkJsonObject& object, const char* name) {
    return object.IndexOf(name) >= 0 ? std::move(object).stringOf(name) : std::string();
}

/// The members of a request, as text; absent ones are empty.
struct InMessage {
    explicit InMessage(CkJsonObject& InData)
        : message(TakeText(InData, "text")), action(TakeText(InData, "action")),
          hash(TakeText(InData, "hash")), CertThumbPrint(TakeText(InData, "certThumbPrint")),
          HashAlgorithm(TakeText(InData, "hashAlgorithm")), authtoken(TakeText(InData, "authToken")),
          PAN(TakeText(InData, "PAN")), XmlSignParms(TakeText(InData, "xmlSignParms")),
          XmlDoc(TakeText(InData, "xmlDoc")) {
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

} // namespace

void QMNativeMessagingHost::CheckForInwordMsgFromBrowser() {
    LogTextToFile("In CheckForInwordMsgFromBrowser", DEBUG);
    while (const std::unique_ptr<CkJsonObject> jObj{ReadStdin()}) {
        const std::string nonce = TakeText(*jObj, "nonce");
        OperationResult msgResponse = ProcessInMessage(jObj.get());
        LogTextToFile("ProcessInMessage Returned.", DEBUG);
        if (LogsAt(DEBUG))
            LogTextToFile(msgResponse.text, DEBUG);
        ReturnResult(std::move(msgResponse), nonce);
    }
    LogTextToFile("Exiting ReadStdin Loop and Closing Host Application.", INFO);
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
        // calloc, not malloc and memset: the pages that the message does not reach are never touched.
        const std::unique_ptr<char[], Free> jsonMsg(
            iLen <= kMaxMessageBytes
                ? static_cast<char*>(std::calloc(static_cast<std::size_t>(iLen), kBufferFactor))
                : nullptr);
        if (!jsonMsg) {
            LogTextToFile("Error  in ReadStdin(): no room for a message of " + std::to_string(iLen) +
                              " bytes",
                          EXCEPTION);
            return nullptr;
        }
        // A short read leaves the text shorter: the zeros end it.
        [[maybe_unused]] const std::size_t received =
            std::fread(jsonMsg.get(), 1, static_cast<std::size_t>(iLen), stdin);
        if (LogsAt(DEBUG))
            LogTextToFile(jsonMsg.get(), DEBUG);
        jObj = std::make_unique<CkJsonObject>();
        jObj->Load(jsonMsg.get());
    } catch (const std::exception& e) {
        LogTextToFile(std::string("Error  in ReadStdin(): ") + e.what(), EXCEPTION);
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
        std::string text = std::string("Error  in ProcessInMessage(): ") + e.what();
        LogTextToFile(text, EXCEPTION);
        return {false, std::move(text)};
    }
}

void QMNativeMessagingHost::ReturnResult(OperationResult RespData, std::string nonce) {
    try {
        CkJsonObject RespJsonObj;
        if (RespData.success) {
            RespJsonObj.AppendInt("status_cd", 1);
            RespJsonObj.AppendString("result", std::move(RespData.text));
        } else {
            const std::string resultResp = kErrorPrefix + RespData.text;
            RespJsonObj.AppendInt("status_cd", 0);
            RespJsonObj.AppendString("result", resultResp);
            LogTextToFile(resultResp, DEBUG);
        }
        RespJsonObj.AppendString("nonce", nonce);

        const std::string RespBytes = RespJsonObj.emit();
        const auto respLen = static_cast<std::uint32_t>(std::strlen(RespBytes.c_str()));
        unsigned char bytes[4];
        for (unsigned i = 0; i < sizeof bytes; ++i)
            bytes[i] = static_cast<unsigned char>(respLen >> (8 * i));
        std::fwrite(bytes, 1, sizeof bytes, stdout);
        std::fwrite(RespBytes.data(), 1, respLen, stdout);
        std::fflush(stdout);
    } catch (const std::exception& e) {
        LogTextToFile(std::string("Error  in ReturnResult(): ") + e.what(), EXCEPTION);
    }
}
