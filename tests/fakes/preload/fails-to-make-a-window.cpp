// There is no window to be had.

#include <wx/frame.h>

#include <stdexcept>

bool wxFrame::Create(wxWindow*, wxWindowID, const wxString&, const wxPoint&, const wxSize&, long,
                     const wxString&) {
    throw std::runtime_error("no window");
}
