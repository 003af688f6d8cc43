#pragma once

#include <wx/app.h>
#include <wx/frame.h>
#include <wx/timer.h>

class wxButton;
class wxSizer;

/// Whether the first idle event has come: it starts the service.
extern bool readStdinLoopStarted;

/// Reads "QMHostSettings.json" in the working directory: "AppLogLevel" into AppLogLevel and a non-empty
/// "TokenDriverFullPath" into TokenDriverFullPath. What is missing keeps its value; nothing is thrown.
void LoadQMHostSettings();

class MyApp : public wxApp {
public:
    /// Loads the settings and shows the window, whose first idle event starts the service.
    bool OnInit() override;
};

wxDECLARE_APP(MyApp);

/// The host's one window: the token's certificates as a list of cards, OK and Cancel. Hidden while nobody
/// is asked; the answer is left in selCKA_ID.
class MyFrame : public wxFrame {
public:
    explicit MyFrame(const wxString& title);

    void OnOk(wxCommandEvent& event);
    void OnCancel(wxCommandEvent& event);
    /// Does nothing, on purpose: the timer is there to wake the event loop.
    void OnTimer(wxTimerEvent& event);
    /// The first one hides the window, loads the token module and serves requests until standard input ends.
    void OnIdle(wxIdleEvent& event);
    /// Processes events. Kept on purpose, though nobody calls it.
    void QMRefreshUI();

    /// Waits, within OnIdle, until the handler has returned: wx goes on using a frame to which it is sending
    /// an event.
    bool Destroy() override;

private:
    wxSizer* CreateHeaderRow();
    wxSizer* CreateButtonRow();
    void ServeRequests();

    wxTimer native_messaging_timer;
    wxButton* StdDialogButtonSizerOK = nullptr;
    wxButton* StdDialogButtonSizerCancel = nullptr;
    bool serving_ = false;
    bool destroyWhenServed_ = false;

    wxDECLARE_EVENT_TABLE();
};
