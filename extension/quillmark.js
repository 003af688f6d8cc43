/**
 * Quillmark's page library: signatures with the user's crypto token, for web pages.
 *
 * Copy this file to your own server and import it; it has no dependencies.
 *
 *     import { selectCertificate, signPdfHash, suitableDigest } from "./quillmark.js";
 *
 *     const certificate = await selectCertificate();
 *     const { hash, hashAlgorithm, bytes } = await suitableDigest((attempt) => bytesToSign(attempt));
 *     const pkcs7 = await signPdfHash(hash, certificate.CertThumbPrint, { hashAlgorithm });
 *
 * Every call returns a promise. It rejects with a `QuillmarkError`, whose `code` is for programs and whose `message` is
 * for people. The extension asks the user before a site's first request, and serves one request at a time.
 *
 * The declarations in quillmark.d.ts describe each function in full.
 */

/** What the user is told in English, by error code. The codes are stable; the words may be improved. */
export const ERRORS = Object.freeze({
  EXTENSION_MISSING: "The Quillmark extension is not installed, switched off, or was just updated. Install it or switch it on, then reload this page.",
  HOST_MISSING: "Quillmark's signing program is not installed, or this browser does not know it. Install it, or run quillmark-doctor to see what is missing.",
  HOST_EXITED: "The signing program ended before it had answered. Try again. If this repeats, run quillmark-doctor.",
  HOST_FORBIDDEN: "This browser is not allowed to start the signing program. A policy of this computer or the signing program's registration forbids it; quillmark-doctor shows which.",
  USER_CANCELLED: "You cancelled, and this page got no signature. If the list was empty, run quillmark-tokens: it tells why.",
  TOKEN_MISSING: "No crypto token was found. Plug in your token or insert your card, then try again. If it is there, run quillmark-tokens: it tells what this computer sees.",
  LOGIN_FAILED: "The token did not accept the login: the PIN was wrong, left empty, or is locked. Check the PIN before you try again; most tokens lock after a few wrong ones.",
  KEY_NOT_FOUND: "The token holds no private key for this request. Choose another certificate, or run quillmark-tokens to see which can sign.",
  CERTIFICATE_NOT_FOUND: "The certificate that this page asked for is not the one chosen, or is not on the token. Plug in the token that holds it, ask again, and choose that one.",
  TOKEN_ERROR: "The token reported an error. Unplug it, plug it in again, then try once more.",
  UNSUPPORTED_HASH: "This page asked for a hash algorithm that is not offered. It has to ask for SHA-256, SHA-384 or SHA-512.",
  UNKNOWN_ACTION: "The signing program does not know this kind of request. Update it.",
  NOT_IMPLEMENTED: "The signing program does not offer this kind of signature. This page has to ask for another kind.",
  TOO_LARGE: "This is too large to be signed in one piece. This page has to ask for less at once.",
  BAD_REPLY: "The signing program's answer could not be understood. Try again. If this repeats, run quillmark-doctor.",
  TIMEOUT: "There was no answer in time, and this page got no signature. Ask again when you are ready to answer.",
  ABORTED: "This page withdrew its request and got no signature. Use the page's button again if you still want to sign.",
  ORIGIN_DENIED: "You have not allowed this site to ask for signatures. Reload the page to be asked anew.",
  NOT_NOW: "Quillmark does not ask you about this page now. Go to the page and use its own button; if you have just refused its request, wait a little first.",
  TOO_MANY: "Too many requests are open. This page has to wait for their answers before it asks again.",
  DIGEST_UNSUITABLE: "This document's digest holds a zero byte and cannot be signed as it is. The page has to use another hash algorithm, or change the document slightly (a new time or document ID), and ask again.",
  DOCUMENT_REFUSED: "This document cannot be signed. Save it anew in the program that it comes from, or use another copy.",
  INSECURE_PAGE: "Signatures are made only for pages with a protected address. Open this page by its https:// address.",
  SIGNATURE_INVALID: "The signed document did not pass its check, and was thrown away. Try again; if this repeats, tell us which token it is.",
  TIMESTAMP_FAILED: "This page did not get a time stamp for the signature. Your token had signed already; that signature was thrown away, and this page did not get it. Try again later.",
  INVALID_ARGUMENT: "This page made a request that is not valid. Its makers find the reason in the error's detail.",
});

/** What is said where an error's `reason` is known, by code and reason. */
const REASONS = {
  "LOGIN_FAILED.empty": "No PIN was typed, so the token made no signature. Ask again, and type your token's PIN.",
  "ORIGIN_DENIED.policy": "The administrator of this computer does not allow this site to ask for signatures. Only the administrator can change that.",
};

/** The same in other languages. */
const TRANSLATIONS = {
  hi: {
    EXTENSION_MISSING: "Quillmark एक्सटेंशन इंस्टॉल नहीं है, बंद है, या अभी-अभी अपडेट हुआ है। उसे इंस्टॉल करें या चालू करें, फिर यह पृष्ठ दोबारा लोड करें।",
    HOST_MISSING: "Quillmark का हस्ताक्षर प्रोग्राम इंस्टॉल नहीं है, या यह ब्राउज़र उसे नहीं जानता। उसे इंस्टॉल करें, या quillmark-doctor चलाकर देखें कि क्या नहीं है।",
    HOST_EXITED: "हस्ताक्षर प्रोग्राम उत्तर देने से पहले ही बंद हो गया। फिर से कोशिश करें। ऐसा बार-बार हो, तो quillmark-doctor चलाएँ।",
    HOST_FORBIDDEN: "इस ब्राउज़र को हस्ताक्षर प्रोग्राम शुरू करने की अनुमति नहीं है। इस कंप्यूटर की कोई नीति या हस्ताक्षर प्रोग्राम का पंजीकरण इसे रोकता है; कौन-सा, यह quillmark-doctor दिखाता है।",
    USER_CANCELLED: "आपने रद्द किया, और इस पृष्ठ को कोई हस्ताक्षर नहीं मिला। यदि सूची खाली थी, तो quillmark-tokens चलाएँ: वह कारण बताता है।",
    TOKEN_MISSING: "कोई क्रिप्टो टोकन नहीं मिला। अपना टोकन लगाएँ या कार्ड डालें, फिर दोबारा कोशिश करें। यदि वह लगा हुआ है, तो quillmark-tokens चलाएँ: वह बताता है कि यह कंप्यूटर क्या देखता है।",
    LOGIN_FAILED: "टोकन ने लॉगिन स्वीकार नहीं किया: PIN गलत था, खाली छोड़ा गया, या लॉक है। दोबारा कोशिश करने से पहले PIN जाँच लें; अधिकतर टोकन कुछ गलत PIN के बाद लॉक हो जाते हैं।",
    "LOGIN_FAILED.empty": "कोई PIN नहीं डाला गया, इसलिए टोकन ने कोई हस्ताक्षर नहीं किया। फिर से अनुरोध करें, और अपने टोकन का PIN डालें।",
    KEY_NOT_FOUND: "टोकन में इस अनुरोध के लिए कोई निजी कुंजी नहीं है। कोई दूसरा प्रमाणपत्र चुनें, या quillmark-tokens चलाकर देखें कि कौन-सा हस्ताक्षर कर सकता है।",
    CERTIFICATE_NOT_FOUND: "इस पृष्ठ ने जो प्रमाणपत्र माँगा, वह चुना हुआ प्रमाणपत्र नहीं है, या टोकन में नहीं है। जिस टोकन में वह है उसे लगाएँ, फिर से अनुरोध करें, और वही चुनें।",
    TOKEN_ERROR: "टोकन ने त्रुटि बताई। उसे निकालें, फिर से लगाएँ, और एक बार फिर कोशिश करें।",
    UNSUPPORTED_HASH: "इस पृष्ठ ने ऐसा हैश एल्गोरिद्म माँगा जो उपलब्ध नहीं है। उसे SHA-256, SHA-384 या SHA-512 माँगना होगा।",
    UNKNOWN_ACTION: "हस्ताक्षर प्रोग्राम इस प्रकार का अनुरोध नहीं जानता। उसे अपडेट करें।",
    NOT_IMPLEMENTED: "हस्ताक्षर प्रोग्राम में इस प्रकार का हस्ताक्षर उपलब्ध नहीं है। इस पृष्ठ को किसी दूसरे प्रकार का हस्ताक्षर माँगना होगा।",
    TOO_LARGE: "यह इतना बड़ा है कि इस पर एक ही बार में हस्ताक्षर नहीं किया जा सकता। इस पृष्ठ को एक बार में कम माँगना होगा।",
    BAD_REPLY: "हस्ताक्षर प्रोग्राम का उत्तर समझा नहीं जा सका। फिर से कोशिश करें। ऐसा बार-बार हो, तो quillmark-doctor चलाएँ।",
    TIMEOUT: "समय पर कोई उत्तर नहीं आया, और इस पृष्ठ को कोई हस्ताक्षर नहीं मिला। जब आप उत्तर देने को तैयार हों, तब फिर से अनुरोध करें।",
    ABORTED: "इस पृष्ठ ने अपना अनुरोध वापस ले लिया, और उसे कोई हस्ताक्षर नहीं मिला। यदि आप अब भी हस्ताक्षर करना चाहते हैं, तो पृष्ठ का बटन फिर दबाएँ।",
    ORIGIN_DENIED: "आपने इस साइट को हस्ताक्षर माँगने की अनुमति नहीं दी है। फिर से पूछे जाने के लिए यह पृष्ठ दोबारा लोड करें।",
    "ORIGIN_DENIED.policy": "इस कंप्यूटर का व्यवस्थापक इस साइट को हस्ताक्षर माँगने की अनुमति नहीं देता। इसे केवल व्यवस्थापक ही बदल सकता है।",
    NOT_NOW: "Quillmark अभी आपसे इस पृष्ठ के बारे में नहीं पूछता। पृष्ठ पर जाएँ और उसी का बटन दबाएँ; यदि आपने अभी-अभी उसका अनुरोध अस्वीकार किया है, तो पहले थोड़ा रुकें।",
    TOO_MANY: "बहुत अधिक अनुरोध खुले हैं। फिर से माँगने से पहले इस पृष्ठ को उनके उत्तरों की प्रतीक्षा करनी होगी।",
    DIGEST_UNSUITABLE: "इस दस्तावेज़ के डाइजेस्ट में एक शून्य बाइट है, और इस रूप में उस पर हस्ताक्षर नहीं किया जा सकता। पृष्ठ को कोई दूसरा हैश एल्गोरिद्म लेना होगा, या दस्तावेज़ को थोड़ा बदलना होगा (नया समय या नया दस्तावेज़ ID), और फिर से माँगना होगा।",
    DOCUMENT_REFUSED: "इस दस्तावेज़ पर हस्ताक्षर नहीं किया जा सकता। इसे उस प्रोग्राम में नए सिरे से सहेजें जिससे यह आया है, या कोई दूसरी प्रति लें।",
    INSECURE_PAGE: "हस्ताक्षर केवल सुरक्षित पते वाले पृष्ठों के लिए किए जाते हैं। यह पृष्ठ उसके https:// पते से खोलें।",
    SIGNATURE_INVALID: "हस्ताक्षरित दस्तावेज़ अपनी जाँच में सही नहीं निकला, और फेंक दिया गया। फिर से कोशिश करें; ऐसा बार-बार हो, तो हमें बताएँ कि यह कौन-सा टोकन है।",
    TIMESTAMP_FAILED: "इस पृष्ठ को हस्ताक्षर के लिए समय-मुहर नहीं मिली। आपका टोकन हस्ताक्षर कर चुका था; वह हस्ताक्षर फेंक दिया गया, और इस पृष्ठ को नहीं मिला। बाद में फिर कोशिश करें।",
    INVALID_ARGUMENT: "इस पृष्ठ ने ऐसा अनुरोध किया जो मान्य नहीं है। इसके निर्माताओं को कारण त्रुटि के detail में मिलेगा।",
  },
  ta: {
    EXTENSION_MISSING: "Quillmark நீட்சி நிறுவப்படவில்லை, அணைக்கப்பட்டுள்ளது, அல்லது இப்போதுதான் புதுப்பிக்கப்பட்டது. அதை நிறுவுங்கள் அல்லது இயக்குங்கள், பிறகு இந்தப் பக்கத்தை மீண்டும் ஏற்றுங்கள்.",
    HOST_MISSING: "Quillmark இன் கையொப்ப நிரல் நிறுவப்படவில்லை, அல்லது இந்த உலாவிக்கு அது தெரியவில்லை. அதை நிறுவுங்கள், அல்லது என்ன இல்லை என்பதை அறிய quillmark-doctor ஐ இயக்குங்கள்.",
    HOST_EXITED: "கையொப்ப நிரல் பதிலளிக்கும் முன்பே முடிந்துவிட்டது. மீண்டும் முயலுங்கள். இது திரும்பத் திரும்ப நடந்தால், quillmark-doctor ஐ இயக்குங்கள்.",
    HOST_FORBIDDEN: "கையொப்ப நிரலைத் தொடங்க இந்த உலாவிக்கு அனுமதி இல்லை. இந்தக் கணினியின் கொள்கை ஒன்றோ கையொப்ப நிரலின் பதிவோ அதைத் தடுக்கிறது; எது என்பதை quillmark-doctor காட்டும்.",
    USER_CANCELLED: "நீங்கள் ரத்து செய்தீர்கள், இந்தப் பக்கத்திற்குக் கையொப்பம் எதுவும் கிடைக்கவில்லை. பட்டியல் காலியாக இருந்திருந்தால், quillmark-tokens ஐ இயக்குங்கள்: அது காரணத்தைச் சொல்லும்.",
    TOKEN_MISSING: "கிரிப்டோ டோக்கன் எதுவும் காணப்படவில்லை. உங்கள் டோக்கனைச் செருகுங்கள் அல்லது அட்டையை இடுங்கள், பிறகு மீண்டும் முயலுங்கள். அது செருகப்பட்டிருந்தால், quillmark-tokens ஐ இயக்குங்கள்: இந்தக் கணினி எதைக் காண்கிறது என்று அது சொல்லும்.",
    LOGIN_FAILED: "டோக்கன் உள்நுழைவை ஏற்கவில்லை: PIN தவறாக இருந்தது, காலியாக விடப்பட்டது, அல்லது பூட்டப்பட்டுள்ளது. மீண்டும் முயலும் முன் PIN ஐச் சரிபாருங்கள்; பெரும்பாலான டோக்கன்கள் சில தவறான PIN களுக்குப் பிறகு பூட்டிக்கொள்ளும்.",
    "LOGIN_FAILED.empty": "PIN எதுவும் உள்ளிடப்படவில்லை, எனவே டோக்கன் கையொப்பமிடவில்லை. மீண்டும் கோரி, உங்கள் டோக்கனின் PIN ஐ உள்ளிடுங்கள்.",
    KEY_NOT_FOUND: "இந்தக் கோரிக்கைக்கான தனிப்பட்ட விசை எதுவும் டோக்கனில் இல்லை. வேறொரு சான்றிதழைத் தேர்ந்தெடுங்கள், அல்லது எது கையொப்பமிட முடியும் என்பதை அறிய quillmark-tokens ஐ இயக்குங்கள்.",
    CERTIFICATE_NOT_FOUND: "இந்தப் பக்கம் கேட்ட சான்றிதழ் தேர்ந்தெடுக்கப்பட்ட சான்றிதழ் அல்ல, அல்லது அது டோக்கனில் இல்லை. அது உள்ள டோக்கனைச் செருகி, மீண்டும் கோரி, அதையே தேர்ந்தெடுங்கள்.",
    TOKEN_ERROR: "டோக்கன் ஒரு பிழையைத் தெரிவித்தது. அதைக் கழற்றி, மீண்டும் செருகி, இன்னொரு முறை முயலுங்கள்.",
    UNSUPPORTED_HASH: "இந்தப் பக்கம் கேட்ட ஹாஷ் நெறிமுறை வழங்கப்படுவதில்லை. அது SHA-256, SHA-384 அல்லது SHA-512 ஐக் கேட்க வேண்டும்.",
    UNKNOWN_ACTION: "இந்த வகைக் கோரிக்கை கையொப்ப நிரலுக்குத் தெரியாது. அதைப் புதுப்பியுங்கள்.",
    NOT_IMPLEMENTED: "இந்த வகைக் கையொப்பத்தைக் கையொப்ப நிரல் வழங்குவதில்லை. இந்தப் பக்கம் வேறு வகைக் கையொப்பத்தைக் கேட்க வேண்டும்.",
    TOO_LARGE: "ஒரே முறையில் கையொப்பமிட முடியாத அளவுக்கு இது பெரிதாக உள்ளது. இந்தப் பக்கம் ஒரு முறையில் குறைவாகக் கேட்க வேண்டும்.",
    BAD_REPLY: "கையொப்ப நிரலின் பதிலைப் புரிந்துகொள்ள முடியவில்லை. மீண்டும் முயலுங்கள். இது திரும்பத் திரும்ப நடந்தால், quillmark-doctor ஐ இயக்குங்கள்.",
    TIMEOUT: "உரிய நேரத்தில் பதில் வரவில்லை, இந்தப் பக்கத்திற்குக் கையொப்பம் எதுவும் கிடைக்கவில்லை. பதிலளிக்கத் தயாராக இருக்கும்போது மீண்டும் கோருங்கள்.",
    ABORTED: "இந்தப் பக்கம் தன் கோரிக்கையைத் திரும்பப் பெற்றது, அதற்குக் கையொப்பம் எதுவும் கிடைக்கவில்லை. இன்னும் கையொப்பமிட விரும்பினால், பக்கத்தின் பொத்தானை மீண்டும் பயன்படுத்துங்கள்.",
    ORIGIN_DENIED: "கையொப்பங்களைக் கேட்க இந்தத் தளத்திற்கு நீங்கள் அனுமதி தரவில்லை. மீண்டும் கேட்கப்பட, இந்தப் பக்கத்தை மீண்டும் ஏற்றுங்கள்.",
    "ORIGIN_DENIED.policy": "கையொப்பங்களைக் கேட்க இந்தத் தளத்திற்கு இந்தக் கணினியின் நிர்வாகி அனுமதி தரவில்லை. அதை நிர்வாகி மட்டுமே மாற்ற முடியும்.",
    NOT_NOW: "இந்தப் பக்கத்தைப் பற்றி Quillmark இப்போது உங்களைக் கேட்பதில்லை. அந்தப் பக்கத்திற்குச் சென்று அதன் பொத்தானையே பயன்படுத்துங்கள்; அதன் கோரிக்கையை நீங்கள் இப்போதுதான் மறுத்திருந்தால், முதலில் சிறிது காத்திருங்கள்.",
    TOO_MANY: "மிக அதிகமான கோரிக்கைகள் திறந்துள்ளன. இந்தப் பக்கம் மீண்டும் கேட்கும் முன் அவற்றின் பதில்களுக்காகக் காத்திருக்க வேண்டும்.",
    DIGEST_UNSUITABLE: "இந்த ஆவணத்தின் டைஜெஸ்ட்டில் ஒரு பூஜ்ஜிய பைட் உள்ளது, அதனால் அதை இருக்கும்படியே கையொப்பமிட முடியாது. இந்தப் பக்கம் வேறொரு ஹாஷ் நெறிமுறையைப் பயன்படுத்த வேண்டும், அல்லது ஆவணத்தைச் சிறிது மாற்றி (புதிய நேரம் அல்லது புதிய ஆவண ID) மீண்டும் கேட்க வேண்டும்.",
    DOCUMENT_REFUSED: "இந்த ஆவணத்தைக் கையொப்பமிட முடியாது. அது வந்த நிரலில் அதைப் புதிதாகச் சேமியுங்கள், அல்லது வேறொரு நகலைப் பயன்படுத்துங்கள்.",
    INSECURE_PAGE: "பாதுகாக்கப்பட்ட முகவரி உள்ள பக்கங்களுக்கு மட்டுமே கையொப்பங்கள் இடப்படும். இந்தப் பக்கத்தை அதன் https:// முகவரியில் திறங்கள்.",
    SIGNATURE_INVALID: "கையொப்பமிடப்பட்ட ஆவணம் அதன் சோதனையில் தேறவில்லை, அது கைவிடப்பட்டது. மீண்டும் முயலுங்கள்; இது திரும்பத் திரும்ப நடந்தால், அது எந்த டோக்கன் என்று எங்களுக்குச் சொல்லுங்கள்.",
    TIMESTAMP_FAILED: "இந்தப் பக்கத்திற்குக் கையொப்பத்திற்கான நேர முத்திரை கிடைக்கவில்லை. உங்கள் டோக்கன் ஏற்கனவே கையொப்பமிட்டுவிட்டது; அந்தக் கையொப்பம் கைவிடப்பட்டது, இந்தப் பக்கத்திற்கு அது கிடைக்கவில்லை. பிறகு மீண்டும் முயலுங்கள்.",
    INVALID_ARGUMENT: "இந்தப் பக்கம் செல்லாத ஒரு கோரிக்கையை விடுத்தது. அதன் உருவாக்குநர்கள் காரணத்தைப் பிழையின் detail இல் காண்பார்கள்.",
  },
  de: {
    EXTENSION_MISSING: "Die Erweiterung Quillmark ist nicht installiert, ausgeschaltet oder wurde gerade aktualisiert. Installieren Sie sie oder schalten Sie sie ein, und laden Sie dann diese Seite neu.",
    HOST_MISSING: "Das Signaturprogramm von Quillmark ist nicht installiert, oder dieser Browser kennt es nicht. Installieren Sie es, oder lassen Sie quillmark-doctor nachsehen, was fehlt.",
    HOST_EXITED: "Das Signaturprogramm hat sich beendet, bevor es geantwortet hat. Versuchen Sie es noch einmal. Wenn sich das wiederholt, führen Sie quillmark-doctor aus.",
    HOST_FORBIDDEN: "Dieser Browser darf das Signaturprogramm nicht starten. Eine Richtlinie dieses Computers oder die Registrierung des Signaturprogramms verbietet es; welche, zeigt quillmark-doctor.",
    USER_CANCELLED: "Sie haben abgebrochen, und diese Seite hat keine Signatur bekommen. Wenn die Liste leer war, führen Sie quillmark-tokens aus: Es sagt, warum.",
    TOKEN_MISSING: "Es wurde kein Krypto-Token gefunden. Stecken Sie Ihren Token oder Ihre Karte ein, und versuchen Sie es dann noch einmal. Wenn er steckt, führen Sie quillmark-tokens aus: Es sagt, was dieser Computer sieht.",
    LOGIN_FAILED: "Der Token hat die Anmeldung nicht angenommen: Die PIN war falsch, wurde leer gelassen oder ist gesperrt. Prüfen Sie die PIN, bevor Sie es noch einmal versuchen; die meisten Token sperren sich nach wenigen falschen.",
    "LOGIN_FAILED.empty": "Es wurde keine PIN eingegeben, also hat der Token nicht signiert. Fragen Sie noch einmal an, und geben Sie die PIN Ihres Tokens ein.",
    KEY_NOT_FOUND: "Auf dem Token ist kein privater Schlüssel für diese Anfrage. Wählen Sie ein anderes Zertifikat, oder lassen Sie quillmark-tokens zeigen, welches signieren kann.",
    CERTIFICATE_NOT_FOUND: "Das Zertifikat, nach dem diese Seite gefragt hat, ist nicht das gewählte oder ist nicht auf dem Token. Stecken Sie den Token ein, auf dem es ist, fragen Sie noch einmal an, und wählen Sie dieses.",
    TOKEN_ERROR: "Der Token hat einen Fehler gemeldet. Ziehen Sie ihn ab, stecken Sie ihn wieder ein, und versuchen Sie es dann noch einmal.",
    UNSUPPORTED_HASH: "Diese Seite hat einen Hash-Algorithmus verlangt, der nicht angeboten wird. Sie muss SHA-256, SHA-384 oder SHA-512 verlangen.",
    UNKNOWN_ACTION: "Das Signaturprogramm kennt diese Art von Anfrage nicht. Aktualisieren Sie es.",
    NOT_IMPLEMENTED: "Das Signaturprogramm bietet diese Art von Signatur nicht an. Diese Seite muss nach einer anderen Art fragen.",
    TOO_LARGE: "Das ist zu groß, um in einem Stück signiert zu werden. Diese Seite muss nach weniger auf einmal fragen.",
    BAD_REPLY: "Die Antwort des Signaturprogramms war nicht zu verstehen. Versuchen Sie es noch einmal. Wenn sich das wiederholt, führen Sie quillmark-doctor aus.",
    TIMEOUT: "Es kam rechtzeitig keine Antwort, und diese Seite hat keine Signatur bekommen. Fragen Sie noch einmal an, wenn Sie antworten können.",
    ABORTED: "Diese Seite hat ihre Anfrage zurückgezogen und keine Signatur bekommen. Benutzen Sie noch einmal die Schaltfläche der Seite, wenn Sie weiterhin signieren wollen.",
    ORIGIN_DENIED: "Sie haben dieser Website nicht erlaubt, nach Signaturen zu fragen. Laden Sie die Seite neu, um noch einmal gefragt zu werden.",
    "ORIGIN_DENIED.policy": "Der Administrator dieses Computers erlaubt dieser Website nicht, nach Signaturen zu fragen. Nur der Administrator kann das ändern.",
    NOT_NOW: "Quillmark fragt Sie zu dieser Seite jetzt nicht. Gehen Sie zu der Seite, und benutzen Sie deren eigene Schaltfläche; wenn Sie ihre Anfrage gerade abgelehnt haben, warten Sie vorher ein wenig.",
    TOO_MANY: "Es sind zu viele Anfragen offen. Diese Seite muss deren Antworten abwarten, bevor sie wieder fragt.",
    DIGEST_UNSUITABLE: "Der Hashwert dieses Dokuments enthält ein Null-Byte und kann so nicht signiert werden. Die Seite muss einen anderen Hash-Algorithmus verwenden oder das Dokument ein wenig ändern (eine neue Zeit oder Dokument-ID) und noch einmal fragen.",
    DOCUMENT_REFUSED: "Dieses Dokument kann nicht signiert werden. Speichern Sie es neu in dem Programm, aus dem es kommt, oder nehmen Sie eine andere Kopie.",
    INSECURE_PAGE: "Signaturen gibt es nur für Seiten mit geschützter Adresse. Öffnen Sie diese Seite mit ihrer Adresse, die mit https:// beginnt.",
    SIGNATURE_INVALID: "Das signierte Dokument hat seine Prüfung nicht bestanden und wurde verworfen. Versuchen Sie es noch einmal; wenn sich das wiederholt, sagen Sie uns, welcher Token es ist.",
    TIMESTAMP_FAILED: "Diese Seite hat keinen Zeitstempel für die Signatur bekommen. Ihr Token hatte schon signiert; diese Signatur wurde verworfen, und diese Seite hat sie nicht bekommen. Versuchen Sie es später noch einmal.",
    INVALID_ARGUMENT: "Diese Seite hat eine Anfrage gestellt, die nicht gültig ist. Ihre Entwickler finden den Grund im detail des Fehlers.",
  },
};

/**
 * What the user is told about an error, in the language of a BCP 47 tag: the page's own when left out, English for others.
 */
export function messageOf(code, lang = globalThis.document?.documentElement?.lang, reason = "") {
  const language = String(lang).toLowerCase().split("-")[0];
  const messages = Object.hasOwn(TRANSLATIONS, language) ? TRANSLATIONS[language] : { ...ERRORS, ...REASONS };
  return messages[`${code}.${reason}`] ?? messages[code];
}

/** The time, in milliseconds, that the user has for a request when `options.timeout` does not say otherwise. */
export const DEFAULT_TIMEOUT_MS = 120_000;

/** The longest time that a page can ask for: a request that nobody answers must not hold up those of other pages. */
export const MAX_TIMEOUT_MS = 600_000;

// Browsers take at most 1 MiB from a native program. The answer to signGstReturn is Base64 and holds the text itself;
// the room is for the certificate and the signature, which are a few KiB, and for the names around them.
const MAX_REPLY_BYTES = 1024 * 1024;
const SIGNED_DATA_ROOM = 32 * 1024;

/** The longest text, in UTF-8 bytes, that `signGstReturn` takes. */
export const MAX_GST_TEXT_BYTES = (MAX_REPLY_BYTES / 4) * 3 - SIGNED_DATA_ROOM;

// The extension answers a page's greeting at once; only a page without the extension waits as long as this.
const GREETING_MS = 2_000;

const HASH_ALGORITHMS = ["SHA-256", "SHA-384", "SHA-512"];

/** Why a request failed. */
export class QuillmarkError extends Error {
  /**
   * @param {string} code One of the names in `ERRORS`.
   * @param {{message?: string, words?: string, reason?: string, detail?: string, ckr?: string, cause?: unknown, lang?: string}} [more]
   *   `message` says more than is said of the code in the language `lang`, and `words` what is said where that is unknown. `reason`
   *   is a word for programs. `detail` is technical: the signing program's or the browser's own text. `ckr` is the token's error by
   *   its PKCS#11 name.
   */
  constructor(code, { message, words, reason, detail, ckr, cause, lang } = {}) {
    super(message ?? messageOf(code, lang, reason) ?? words ?? code, cause === undefined ? undefined : { cause });
    this.name = "QuillmarkError";
    this.code = code;
    this.reason = reason;
    this.detail = detail;
    this.ckr = ckr;
  }
}

// ---- what a page calls -----------------------------------------------------------------------------------------------

export async function status({ checkHost = false, signal, lang } = {}) {
  try {
    return await ask("status", { checkHost }, { signal, lang });
  } catch (error) {
    if (error.code !== "EXTENSION_MISSING") throw error;
    return { extension: null, permission: null, host: null, waiting: 0 };
  }
}

export function selectCertificate(options) {
  return ask("selectCertificate", {}, options);
}

export function signGstReturn(text, options) {
  return ask("signGstReturn", { text, hashAlgorithm: options?.hashAlgorithm }, options);
}

export function signItReturn(hash, pan, options) {
  return ask("signItReturn", { hash, pan, hashAlgorithm: options?.hashAlgorithm }, options);
}

export async function signPdfHash(hash, certThumbPrint, options) {
  const text = typeof hash === "string" ? hash : toBase64(octetsOf("hash", hash, options?.lang));
  return ask("signPdfHash", { hash: text, certThumbPrint, hashAlgorithm: options?.hashAlgorithm }, options);
}

export async function signPdf(document, { name, reason, location, visible, ...options } = {}) {
  const [outcome] = await signPdfs([{ document, name, reason, location, visible }], options);
  if (outcome.status === "rejected") throw outcome.reason;
  return outcome.value;
}

export async function signPdfs(documents, { chain = [], timestamp, onResult, timeout = MAX_TIMEOUT_MS, lang, ...options } = {}) {
  // What the page does with its bytes from here on changes nothing: a Blob cannot be changed.
  const blobs = documents.map(({ document }) => new Blob([document instanceof Blob ? document : octetsOf("document", document, lang)]));
  const described = documents.map(({ document, name = document.name, reason, location, visible }, i) => ({
    name, reason, location, visible, size: blobs[i].size,
  }));
  const outcomes = new Outcomes(blobs, onResult, lang);
  const answers = {
    piece: async ({ document, at, length }) => toBase64(octets(await blobs[document].slice(at, at + length).arrayBuffer())),
    timeStamp: async ({ digest, request }) => toBase64(octetsOf("timestamp", await timestamp(fromBase64(digest), fromBase64(request)))),
    outcome: (outcome) => outcomes.take(outcome),
  };
  const values = {
    documents: JSON.stringify(described),
    chain: JSON.stringify(chain.map((each) => toBase64(octetsOf("chain", each, lang)))),
    timestamp: typeof timestamp === "function",
  };
  try {
    await ask("signPdfs", values, { ...options, timeout, lang, onQuery: ({ what, ...query }) => answers[what](query) });
  } catch (error) {
    if (outcomes.isEmpty) throw error;
    await outcomes.failRest(error);
  }
  return outcomes.all;
}

/** What has become of each document. */
class Outcomes {
  all;
  #blobs;
  #onResult;
  #lang;

  constructor(blobs, onResult, lang) {
    this.#blobs = blobs;
    this.#onResult = onResult;
    this.#lang = lang;
    this.all = blobs.map(() => undefined);
  }

  get isEmpty() {
    return this.all.every((outcome) => outcome === undefined);
  }

  // The extension gives what it has appended: all that comes before is the document as it was.
  async take({ document, appended, error }) {
    this.#settle(document, error
      ? { status: "rejected", reason: new QuillmarkError(error.code, { ...error, lang: this.#lang }) }
      : { status: "fulfilled", value: octets(await new Blob([this.#blobs[document], fromBase64(appended)]).arrayBuffer()) });
    return "";
  }

  async failRest(reason) {
    this.all.forEach((outcome, i) => outcome ?? this.#settle(i, { status: "rejected", reason }));
  }

  #settle(i, outcome) {
    this.all[i] = outcome;
    this.#onResult?.(i, outcome);
  }
}

export function signAuthToken(token, options) {
  return ask("signAuthToken", { authToken: token, hashAlgorithm: options?.hashAlgorithm }, options);
}

export async function signAuthTokenWithCertificate(token, { certificate, ...options } = {}) {
  const signer = certificate ?? (await selectCertificate(options));
  const signature = await signAuthToken(token, options);
  const { hashAlgorithm, lang } = options;
  if (!(await hasSigned(signer, token, signature, hashAlgorithm))) throw new QuillmarkError("CERTIFICATE_NOT_FOUND", { lang });
  return { signature, certificate: signer };
}

async function hasSigned({ PublicKey }, text, signature, name = "SHA-256") {
  const algorithm = { name: "RSASSA-PKCS1-v1_5", hash: name.toUpperCase().replace(/^SHA-?/, "SHA-") };
  const key = await crypto.subtle.importKey("spki", publicKeyInfo(fromBase64(PublicKey)), algorithm, false, ["verify"]);
  return crypto.subtle.verify(algorithm, key, fromBase64(signature), new TextEncoder().encode(text));
}

// DER of rsaEncryption without parameters of its own (RFC 8017 appendix A.1).
const RSA_ENCRYPTION = [0x30, 13, 6, 9, 0x2a, 0x86, 0x48, 0x86, 0xf7, 0x0d, 1, 1, 1, 5, 0];

/** The SubjectPublicKeyInfo (RFC 5280 section 4.1) around a PKCS#1 key, as WebCrypto takes it. */
const publicKeyInfo = (pkcs1) => der(0x30, [...RSA_ENCRYPTION, ...der(0x03, [0, ...pkcs1])]);

function der(tag, body) {
  const size = body.length < 0x80 ? [body.length] : body.length < 0x100 ? [0x81, body.length] : [0x82, body.length >> 8, body.length & 0xff];
  return Uint8Array.of(tag, ...size, ...body);
}

export async function suitableDigest(makeBytes, { maxAttempts = 20, lang } = {}) {
  checkProtected(lang);
  const make = typeof makeBytes === "function" ? makeBytes : (attempt) => (attempt === 0 ? makeBytes : null);
  for (let attempt = 0; attempt < maxAttempts; attempt++) {
    const bytes = await make(attempt);
    if (!bytes) break;
    for (const hashAlgorithm of HASH_ALGORITHMS) {
      const digest = new Uint8Array(await crypto.subtle.digest(hashAlgorithm, bytes));
      if (!digest.includes(0)) return { hash: toBase64(digest), hashAlgorithm, bytes, attempt };
    }
  }
  throw new QuillmarkError("DIGEST_UNSUITABLE", { lang });
}

// To other pages browsers give neither the extension nor WebCrypto.
function checkProtected(lang) {
  if (globalThis.isSecureContext === false) throw new QuillmarkError("INSECURE_PAGE", { lang });
}

function toBase64(bytes) {
  if (bytes.toBase64) return bytes.toBase64();
  // In pieces, for a function takes only so many arguments.
  const pieces = [];
  for (let at = 0; at < bytes.length; at += 0x8000) pieces.push(String.fromCharCode(...bytes.subarray(at, at + 0x8000)));
  return btoa(pieces.join(""));
}

const fromBase64 = (text) => Uint8Array.from(atob(text), (character) => character.charCodeAt(0));

function octetsOf(name, bytes, lang) {
  const isBytes = bytes instanceof ArrayBuffer || ArrayBuffer.isView(bytes);
  if (!isBytes) throw new QuillmarkError("INVALID_ARGUMENT", { detail: `${name} has to be bytes.`, lang });
  return octets(bytes);
}

const octets = (bytes) =>
  ArrayBuffer.isView(bytes) ? new Uint8Array(bytes.buffer, bytes.byteOffset, bytes.byteLength) : new Uint8Array(bytes);

// ---- the way to the extension ----------------------------------------------------------------------------------------

// The extension checks the values: it could trust no page to have done so.
async function ask(operation, values, options) {
  const lang = options?.lang;
  if (typeof window === "undefined") throw new QuillmarkError("INVALID_ARGUMENT", { detail: "A worker has no way to the extension: ask in the page.", lang });
  checkProtected(lang);
  const channel = await connect();
  if (!channel) throw new QuillmarkError("EXTENSION_MISSING", { lang });
  return channel.send(operation, values, options);
}

/** @type {Promise<Connection | undefined> | undefined} */
let connection;

function connect() {
  if (!connection) {
    const opening = openConnection();
    connection = opening;
    opening.catch(() => forget(opening));
  }
  return connection;
}

function forget(opening) {
  if (connection === opening) connection = undefined;
}

// The extension's script in this page takes one end of a private channel. No other frame sees what passes through it,
// and the target "/" keeps the greeting itself within this document's origin. Resolves to nothing where nobody takes it.
function openConnection() {
  const { port1, port2 } = new MessageChannel();
  const opening = new Promise((resolve) => {
    const timer = setTimeout(() => {
      port1.close();
      forget(opening);
      resolve(undefined);
    }, GREETING_MS);
    port1.onmessage = ({ data }) => {
      if (data?.type !== "ready") return;
      clearTimeout(timer);
      resolve(new Connection(port1, () => forget(opening)));
    };
    window.postMessage({ quillmark: "connect" }, "/", [port2]);
  });
  return opening;
}

/** The channel to the extension, and the requests that wait for its answers. */
class Connection {
  #port;
  #onLost;
  #open = new Map();
  #lastId = 0;

  constructor(port, onLost) {
    this.#port = port;
    this.#onLost = onLost;
    port.onmessage = ({ data }) => this.#receive(data);
  }

  send(operation, values, { signal, timeout = DEFAULT_TIMEOUT_MS, onProgress, onQuery, lang } = {}) {
    return new Promise((resolve, rejectWith) => {
      const id = ++this.#lastId;
      const reject = (code, more) => rejectWith(new QuillmarkError(code, { ...more, lang }));
      const abort = () => {
        this.#port.postMessage({ type: "abort", id });
        this.#settle(id)?.reject("ABORTED", { cause: signal.reason });
      };
      if (signal?.aborted) return reject("ABORTED", { cause: signal.reason });
      const isTime = timeout > 0 && timeout <= MAX_TIMEOUT_MS;
      if (!isTime) return reject("INVALID_ARGUMENT", { detail: `timeout has to be from 1 to ${MAX_TIMEOUT_MS} ms.` });
      this.#port.postMessage({ type: "request", id, operation, values, timeout });
      signal?.addEventListener("abort", abort);
      const finish = () => signal?.removeEventListener("abort", abort);
      this.#open.set(id, { resolve, reject, onProgress, onQuery, finish });
    });
  }

  #receive(message) {
    switch (message?.type) {
      case "progress":
        this.#open.get(message.id)?.onProgress?.(message.progress);
        break;
      case "query":
        void this.#reply(message);
        break;
      case "result":
        this.#settle(message.id)?.resolve(message.value);
        break;
      case "error":
        this.#settle(message.id)?.reject(message.error.code, message.error);
        break;
      case "lost":
        this.#lose();
        break;
    }
  }

  // The extension asks for a piece of a document, or tells what became of one, and waits for the answer.
  async #reply({ id, number, query }) {
    let text = null;
    try {
      text = await this.#open.get(id)?.onQuery?.(query);
    } catch (error) {
      console.error(error); // the page's own, in what it does for the extension
    }
    this.#port.postMessage({ type: "reply", id, number, text });
  }

  #settle(id) {
    const request = this.#open.get(id);
    this.#open.delete(id);
    request?.finish();
    return request;
  }

  #lose() {
    this.#onLost();
    this.#port.close();
    for (const id of [...this.#open.keys()]) this.#settle(id).reject("EXTENSION_MISSING");
  }
}
