#pragma once

#include <wx/app.h>
#include <wx/frame.h>
#include <wx/htmllbox.h>

#include <functional>

/// The host's window, built with the toolkit alone.
struct ReferenceWindow {
    wxFrame* frame = nullptr;
    wxSimpleHtmlListBox* list = nullptr;
};

/// Makes the window, shows it, and hides it in its first idle event, which then runs `serve` and ends the
/// process with status 0.
class ReferenceApp : public wxApp {
public:
    explicit ReferenceApp(std::function<void(ReferenceWindow&)> serve) : serve_(std::move(serve)) {}

    bool OnInit() override;

private:
    std::function<void(ReferenceWindow&)> serve_;
    ReferenceWindow window_;
};
