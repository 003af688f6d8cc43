#pragma once

#include <exception>
#include <string>
#include <vector>

class QMNativeMessagingHost;
class TokenManager;
class wxFrame;
class wxIcon;
class wxSimpleHtmlListBox;

/// What an operation gives back: on success the payload (Base64, JSON or plain text), on failure the error
/// message.
struct OperationResult {
    bool success = false;
    std::string text;
};

enum LogLevels : int {
    DEBUG = 1,    ///< step-by-step trace
    INFO = 2,     ///< progress and handled failures
    EXCEPTION = 3 ///< text of a caught exception
};

/// Messages below this level are dropped. Any integer may stand here: the settings file is taken at its word.
extern LogLevels AppLogLevel;

/// Whether a message of this level would be written. For callers whose message is costly to build.
inline bool LogsAt(LogLevels level) { return level >= AppLogLevel; }

/// Appends one line (time stamp, blank, text) to "QMSignerExtHostLog.txt" in the working directory. The file
/// is open only during the call, so that each line is on disk when the call returns. Fails silently.
void LogTextToFile(std::string text, LogLevels level);

/// Logs "Error  in <where>(): " and what was thrown, and returns that text as an operation's failure,
/// without a text when there is no memory for it. Throws nothing: handlers call it.
OperationResult Failure(const char* where, const std::exception& e);

/// Path of the PKCS#11 module, as the settings file gives it or "./QMTokenDriver.so".
extern std::string TokenDriverFullPath;

/// The one request loop and the one token, alive as long as the process.
extern QMNativeMessagingHost msgHost;
extern TokenManager tokenManager;

/// The one window, owned by wx. Null until the application has started.
extern wxFrame* SelCertFrame;
/// Its size in pixels.
inline constexpr int kWindowWidth = 600;
inline constexpr int kWindowHeight = 500;
/// The window's list of certificates; row i shows the certificate whose CKA_ID is
/// SelectCertDisplayListCKA_ID[i].
extern wxSimpleHtmlListBox* htmlLstCert;
extern std::vector<std::string> SelectCertDisplayListCKA_ID;
/// The user's latest answer: a CKA_ID out of SelectCertDisplayListCKA_ID, or "CANCEL".
extern std::string selCKA_ID;
/// The logo, for windows of ours.
extern wxIcon frameIcon;
