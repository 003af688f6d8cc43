// The window without its user: run on a display, by tests/program/window.test.mjs.

#include "CardList.h"
#include "HostFixture.h"
#include "MainSelectCertificate.h"

#include <wx/init.h>
#include <wx/log.h>
#include <wx/statusbr.h>
#include <wx/utils.h>

#include <ctime>

namespace {

class Window : public HostFixture {
protected:
    Window() {
        AppLogLevel = DEBUG;
        frame_ = new MyFrame("a title"); // wx owns it
    }
    ~Window() override { delete frame_; }

    MyFrame* frame_;
};

/// With a card in it that is selected, and not yet drawn.
class WindowWithCard : public Window {
protected:
    WindowWithCard() {
        SelCertFrame = frame_;
        SelectCertDisplayListCKA_ID = {"an id"};
        selCKA_ID.clear();
        frame_->Show();
        CardsOf(htmlLstCert).ForgetSeen();
        CardsOf(htmlLstCert).SetCards({"stored"}, {{"drawn", "spoken"}});
        htmlLstCert->SetSelection(0);
    }

    bool IsOkEnabled() const { return frame_->FindWindow(wxID_OK)->IsEnabled(); }

    void Draw() {
        for (int i = 0; i < 100 && !IsOkEnabled(); ++i) {
            wxYield();
            wxMilliSleep(20);
        }
        ASSERT_TRUE(IsOkEnabled());
    }

    static void Mouse(wxEventType type) {
        wxMouseEvent event(type);
        event.SetPosition(wxPoint(60, 10));
        htmlLstCert->ProcessWindowEvent(event);
    }
};

TEST_F(Window, TheStatusBarHasTheTimeInItsFirstOfTwoFields) {
    EXPECT_EQ(frame_->GetStatusBar()->GetFieldsCount(), 2);
    const std::string text(frame_->GetStatusBar()->GetStatusText(0).utf8_str());
    EXPECT_TRUE(text.starts_with("System Time: ")) << text;
    std::tm time{};
    const char* const rest = strptime(text.c_str() + 13, "%a %b %d %H:%M:%S %Y", &time);
    EXPECT_STREQ(rest, "\n") << text;
    EXPECT_TRUE(HasLogged("Trying to Create Status Bar"));
}

TEST_F(Window, QMRefreshUIProcessesEventsAndThenLogsSo) {
    bool isServed = false;
    frame_->CallAfter([&] {
        isServed = true;
        EXPECT_FALSE(HasLogged("In QMRefreshUI()"));
    });
    frame_->QMRefreshUI();
    EXPECT_TRUE(isServed);
    EXPECT_TRUE(HasLogged("In QMRefreshUI()"));
}

TEST_F(Window, OnTimerDoesNothing) {
    const std::string before = Log();
    wxTimer timer;
    wxTimerEvent event(timer);
    frame_->OnTimer(event);
    EXPECT_EQ(Log(), before);
}

TEST_F(Window, ARowIsStoredAsItIsAndDrawnAsItIsHarmless) {
    CardsOf(htmlLstCert).SetCards({"<b>stored</b>"}, {{"&lt;drawn&gt;", "spoken"}});
    EXPECT_EQ(htmlLstCert->GetString(0), "<b>stored</b>");
}

TEST_F(WindowWithCard, OkIsDisabledUntilTheCardIsDrawn) {
    EXPECT_FALSE(IsOkEnabled());
    EXPECT_TRUE(frame_->FindWindow(wxID_CANCEL)->IsEnabled());
    Draw();
}

TEST_F(WindowWithCard, APressOfOkThatIsToldLateChoosesNothing) {
    wxCommandEvent event(wxEVT_BUTTON, wxID_OK);
    frame_->ProcessWindowEvent(event);
    EXPECT_EQ(selCKA_ID, "");
    Draw();
    frame_->ProcessWindowEvent(event);
    EXPECT_EQ(selCKA_ID, "an id");
}

TEST_F(WindowWithCard, ADoubleClickThatBeganBeforeTheCardWasDrawnChoosesNothing) {
    Mouse(wxEVT_LEFT_DOWN);
    Draw();
    wxMilliSleep(1000);
    Mouse(wxEVT_LEFT_DCLICK);
    EXPECT_EQ(selCKA_ID, "");
}

TEST_F(WindowWithCard, ADoubleClickRightBehindTheDrawingChooses) {
    Draw();
    Mouse(wxEVT_LEFT_DOWN);
    Mouse(wxEVT_LEFT_DCLICK);
    EXPECT_EQ(selCKA_ID, "an id");
}

} // namespace

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    readStdinLoopStarted = true; // the first idle event starts no service here
    wxApp::SetInstance(new MyApp);
    if (!wxEntryStart(argc, argv))
        return 1;
    wxLog::EnableLogging(false); // it would tell of the missing logo in a window
    const int result = RUN_ALL_TESTS();
    wxEntryCleanup();
    return result;
}
