#include "Window.h"

#include <wx/bitmap.h>
#include <wx/button.h>
#include <wx/icon.h>
#include <wx/image.h>
#include <wx/sizer.h>
#include <wx/statbmp.h>
#include <wx/stattext.h>

#include <cstdlib>
#include <ctime>
#include <utility>

namespace {

wxFont Bold(int pointSize) {
    return wxFont(pointSize, wxFONTFAMILY_DEFAULT, wxFONTSTYLE_NORMAL, wxFONTWEIGHT_BOLD);
}

ReferenceWindow MakeWindow() {
    ReferenceWindow window;
    wxFrame* frame = window.frame =
        new wxFrame(nullptr, wxID_ANY, "Quillmark - Select Certificate", wxDefaultPosition, wxSize(600, 500),
                    wxCAPTION | wxSYSTEM_MENU | wxSTAY_ON_TOP | wxCLIP_CHILDREN);
    auto* header = new wxBoxSizer(wxHORIZONTAL);
    header->Add(new wxStaticBitmap(frame, wxID_ANY, wxBitmap("QMLogo.png", wxBITMAP_TYPE_PNG),
                                   wxDefaultPosition, wxSize(32, 32)),
                0, wxALL | wxALIGN_CENTER_VERTICAL, 5);
    auto* heading = new wxStaticText(frame, wxID_ANY, "Select Certificate");
    heading->SetFont(Bold(20));
    header->Add(heading, 0, wxALL | wxALIGN_CENTER_VERTICAL, 5);

    window.list = new wxSimpleHtmlListBox(frame, wxID_ANY, wxDefaultPosition, wxSize(600, 300));
    window.list->Clear(); // never told its number of rows, it takes it from uninitialised memory

    auto* buttons = new wxStdDialogButtonSizer;
    for (const wxWindowID id : {wxID_OK, wxID_CANCEL}) {
        auto* button = new wxButton(frame, id, "");
        button->SetFont(Bold(12));
        buttons->AddButton(button);
    }
    buttons->Realize();
    buttons->SetMinSize(80, 30);

    auto* rows = new wxBoxSizer(wxVERTICAL);
    rows->Add(header, 1, wxALIGN_CENTER_HORIZONTAL, 5);
    rows->Add(window.list, 0, wxALL, 5);
    rows->Add(buttons, 1, wxALIGN_CENTER_HORIZONTAL, 5);
    frame->SetSizer(rows);

    frame->CreateStatusBar(2, wxSTB_DEFAULT_STYLE, 0);
    const std::time_t now = std::time(nullptr);
    frame->SetStatusText(wxString::Format("System Time: %s", std::ctime(&now)), 0);
    return window;
}

} // namespace

bool ReferenceApp::OnInit() {
    wxImage::AddHandler(new wxPNGHandler);
    window_ = MakeWindow();
    window_.frame->Show();
    window_.frame->Centre();
    wxIcon icon;
    icon.CopyFromBitmap(wxBitmap("QMLogo.png", wxBITMAP_TYPE_PNG));
    window_.frame->SetIcon(icon);
    window_.frame->Bind(wxEVT_IDLE, [this, begun = false](wxIdleEvent&) mutable {
        if (std::exchange(begun, true))
            return; // of a wxYield in `serve_`
        window_.frame->Hide();
        serve_(window_);
        std::_Exit(0); // what was to be measured is over
    });
    return true;
}
