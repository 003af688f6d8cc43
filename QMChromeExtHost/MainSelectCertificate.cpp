#include "MainSelectCertificate.h"

#include "CardList.h"
#include "QMNativeMessagingHost.h"
#include "SelectionWindow.h"
#include "TokenManager.h"
#include "ck/CkJsonObject.h"

#include <wx/accel.h>
#include <wx/bitmap.h>
#include <wx/button.h>
#include <wx/icon.h>
#include <wx/image.h>
#include <wx/log.h>
#include <wx/msgdlg.h>
#include <wx/sizer.h>
#include <wx/statbmp.h>
#include <wx/stattext.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <new>

LogLevels AppLogLevel = INFO;

// The order of these is the order in which they are made.
std::ofstream LogFile;
int timerid = wxNewId();
int htmlListBoxId = wxNewId();
wxString frameName = "QMSelCertificate";
wxIcon frameIcon;
std::vector<std::string> SelectCertDisplayListCKA_ID;
QMNativeMessagingHost msgHost;
std::string selCKA_ID;
std::string TokenDriverFullPath = "./QMTokenDriver.so";
TokenManager tokenManager;

wxBEGIN_EVENT_TABLE(MyFrame, wxFrame)
    EVT_BUTTON(wxID_OK, MyFrame::OnOk)
    EVT_LISTBOX_DCLICK(htmlListBoxId, MyFrame::OnOk)
    EVT_BUTTON(wxID_CANCEL, MyFrame::OnCancel)
    EVT_TIMER(timerid, MyFrame::OnTimer)
    EVT_IDLE(MyFrame::OnIdle)
wxEND_EVENT_TABLE()

wxFrame* SelCertFrame = nullptr;
wxSimpleHtmlListBox* htmlLstCert = nullptr;
bool readStdinLoopStarted = false;
constexpr int timerInterval = 2000; // milliseconds

namespace {

constexpr char kLogoFile[] = "QMLogo.png";

/// wx's own messages go to the log file: a window of wx's would wait for a user who cannot know what it
/// means.
class LogFileTarget : public wxLog {
protected:
    void DoLogRecord(wxLogLevel, const wxString& message, const wxLogRecordInfo&) override {
        LogTextToFile(std::string(message.utf8_str()), DEBUG);
    }
};

void LogAssertion(const wxString& file, int line, const wxString& function, const wxString& condition,
                  const wxString& message) {
    LogTextToFile(std::string(wxString::Format("wx assertion %s in %s (%s:%d) %s", condition, function, file,
                                               line, message)
                                  .utf8_str()),
                  DEBUG);
}

void RouteToolkitMessagesToLog() {
    delete wxLog::SetActiveTarget(new LogFileTarget); // NOLINT(*NewDeleteLeaks): wx owns its target
    wxSetAssertHandler(LogAssertion);
}

wxFont BoldFont(int pointSize) {
    return wxFont(pointSize, wxFONTFAMILY_DEFAULT, wxFONTSTYLE_NORMAL, wxFONTWEIGHT_BOLD, false, "");
}

} // namespace

void LogTextToFile(std::string text, LogLevels level) {
    if (!LogsAt(level))
        return;
    const std::time_t now = std::time(nullptr);
    char timeStamp[30];
    std::snprintf(timeStamp, sizeof timeStamp, "%.24s", std::ctime(&now));
    try {
        LogFile.open("QMSignerExtHostLog.txt", std::ios::out | std::ios::app);
        LogFile << timeStamp << " " << text << std::endl;
    } catch (const std::bad_alloc&) { // opening wants a buffer
    }
    LogFile.close();
}

OperationResult Failure(const char* where, const std::exception& e) try {
    std::string text = std::string("Error  in ") + where + "(): " + e.what();
    LogTextToFile(text, EXCEPTION);
    return {false, std::move(text)};
} catch (const std::bad_alloc&) {
    return {false, ""};
}

void LoadQMHostSettings() {
    try {
        CkJsonObject settings;
        if (!settings.LoadFile("QMHostSettings.json")) {
            LogTextToFile("Cound not Load Settings from QMHostSettings.json - " + settings.lastErrorText(),
                          INFO);
            return;
        }
        LogTextToFile("Loading Settings from QMHostSettings.json", INFO);
        if (settings.IndexOf("AppLogLevel") >= 0)
            AppLogLevel = static_cast<LogLevels>(settings.IntOf("AppLogLevel"));
        const std::string path = settings.stringOf("TokenDriverFullPath");
        if (!path.empty())
            TokenDriverFullPath = path;
    } catch (const std::exception& e) {
        LogTextToFile(e.what(), EXCEPTION);
    }
}

bool MyApp::OnInit() {
    std::signal(SIGPIPE, SIG_IGN); // a browser that is gone is noticed at the next read
    RouteToolkitMessagesToLog();
    wxImage::AddHandler(new wxPNGHandler);
    try {
        LoadQMHostSettings();
        LogTextToFile("Host Application Started", INFO);
        SelCertFrame = new MyFrame("Quillmark - Select Certificate");
        LogTextToFile("Trying to Show Window", DEBUG);
        SelCertFrame->Show(true);
        SelCertFrame->Centre(wxBOTH);
        LogTextToFile("Done Centering Window", DEBUG);
        LogTextToFile("Trying to Set Window Icon", DEBUG);
        frameIcon.CopyFromBitmap(wxBitmap(kLogoFile, wxBITMAP_TYPE_PNG));
        SelCertFrame->SetIcon(frameIcon);
        LogTextToFile("Done Setting Window Icon", DEBUG);
        return true;
    } catch (const std::exception& e) {
        LogTextToFile(e.what(), EXCEPTION);
        return false;
    }
}

MyFrame::MyFrame(const wxString& title)
    : wxFrame(nullptr, wxID_ANY, title, wxDefaultPosition, wxSize(kWindowWidth, kWindowHeight),
              wxCAPTION | wxSYSTEM_MENU | wxSTAY_ON_TOP | wxCLIP_CHILDREN, frameName),
      native_messaging_timer(this, timerid) {
    LogTextToFile("Entered MyFrame::MyFrame", DEBUG);
    auto* mainSizer = new wxBoxSizer(wxVERTICAL);
    mainSizer->Add(CreateHeaderRow(), 1, wxALIGN_CENTER_HORIZONTAL, 5);
    htmlLstCert = new CardList(this, htmlListBoxId, wxPoint(200, 100), wxSize(600, 300));
    mainSizer->Add(htmlLstCert, 0, wxALL, 5);
    mainSizer->Add(CreateButtonRow(), 1, wxALIGN_CENTER_HORIZONTAL, 5);
    SetSizer(mainSizer);
    const wxAcceleratorEntry escape(wxACCEL_NORMAL, WXK_ESCAPE, wxID_CANCEL);
    SetAcceleratorTable(wxAcceleratorTable(1, &escape));

    LogTextToFile("Trying to Create Status Bar", DEBUG);
    CreateStatusBar(2, wxSTB_DEFAULT_STYLE, 0);
    const std::time_t now = std::time(nullptr);
    SetStatusText(wxString::Format("System Time: %s", std::ctime(&now)), 0);
    LogTextToFile("Done MyFrame::MyFrame", DEBUG);
}

wxSizer* MyFrame::CreateHeaderRow() {
    auto* row = new wxBoxSizer(wxHORIZONTAL);
    auto* logo = new wxStaticBitmap(this, wxID_ANY, wxNullBitmap, wxPoint(160, 0), wxSize(32, 32), 0);
    logo->SetBitmap(wxBitmap(kLogoFile, wxBITMAP_TYPE_PNG));
    row->Add(logo, 0, wxALL | wxALIGN_CENTER_VERTICAL, 5);
    auto* heading = new wxStaticText(this, wxID_ANY, "Select Certificate", wxPoint(200, 0), wxDefaultSize);
    heading->SetFont(BoldFont(20));
    row->Add(heading, 0, wxALL | wxALIGN_CENTER_VERTICAL, 5);
    return row;
}

wxSizer* MyFrame::CreateButtonRow() {
    auto* row = new wxStdDialogButtonSizer;
    StdDialogButtonSizerOK = new wxButton(this, wxID_OK, "");
    StdDialogButtonSizerOK->SetFont(BoldFont(12));
    row->AddButton(StdDialogButtonSizerOK);
    StdDialogButtonSizerCancel = new wxButton(this, wxID_CANCEL, "");
    StdDialogButtonSizerCancel->SetFont(BoldFont(12));
    row->AddButton(StdDialogButtonSizerCancel);
    StdDialogButtonSizerOK->SetDefault();
    row->Realize();
    row->SetOrientation(wxHORIZONTAL); // on small screens, wx puts one above the other
    row->SetMinSize(80, 30);
    return row;
}

void MyFrame::OnOk(wxCommandEvent&) {
    const int index = htmlLstCert->GetSelection();
    LogTextToFile("Selected Certificate Index: " + std::to_string(index), DEBUG);
    // A button that a key presses tells so a quarter of a second later, when it may have been disabled.
    if (index == wxNOT_FOUND || !StdDialogButtonSizerOK->IsEnabled())
        return;
    selCKA_ID = SelectCertDisplayListCKA_ID.at(static_cast<std::size_t>(index));
    QMNativeMessagingHost::bSelCertUIOpen = false;
    SelCertFrame->Hide();
}

void MyFrame::OnCancel(wxCommandEvent&) {
    LogTextToFile("CANCEL Clicked", DEBUG);
    selCKA_ID = "CANCEL";
    QMNativeMessagingHost::bSelCertUIOpen = false;
    SelCertFrame->Hide();
}

void MyFrame::OnTimer(wxTimerEvent&) {}

void MyFrame::OnIdle(wxIdleEvent&) {
    if (readStdinLoopStarted)
        return;
    LogTextToFile("In OnIdle() : Hiding Dialog and Starting CheckForInwordMsgFromBrowser()", DEBUG);
    native_messaging_timer.Start(timerInterval, wxTIMER_ONE_SHOT);
    readStdinLoopStarted = true;
    Hide();
    serving_ = true;
    SendToDisplay();
    ServeRequests();
    serving_ = false;
    if (destroyWhenServed_) {
        Destroy();
        wxWakeUpIdle(); // the deletion waits for the next idle time, which nothing else would bring about
    }
}

void MyFrame::ServeRequests() {
    const OperationResult loaded = tokenManager.LoadTokenDrivers();
    if (!loaded.success) {
        wxMessageBox(wxString::FromUTF8(loaded.text), "Exiting Quillmark - Error Loading Token Driver",
                     wxOK | wxICON_ERROR | wxSTAY_ON_TOP, SelCertFrame);
        wxYield();
        std::exit(1);
    }
    msgHost.CheckForInwordMsgFromBrowser();
}

void MyFrame::QMRefreshUI() {
    wxYield();
    LogTextToFile("In QMRefreshUI()", DEBUG);
}

bool MyFrame::Destroy() {
    if (serving_) {
        destroyWhenServed_ = true;
        return true;
    }
    return wxFrame::Destroy();
}
