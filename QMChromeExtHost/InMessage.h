#pragma once

#include "ck/CkJsonObject.h"

#include <string>

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
