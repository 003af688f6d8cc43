#include "PinDialog.h"

#include "CardListAccessible.h"
#include "QMHostShared.h"
#include "ck/CkSecureErase.h"

#include <wx/frame.h>
#include <wx/icon.h>
#include <wx/stattext.h>
#include <wx/textdlg.h>

void AskTokenPin(std::string& pin) {
    constexpr char question[] = "Please Enter Token PIN";
    wxTextEntryDialog dialog(SelCertFrame, question, "Quillmark", "",
                             wxOK | wxCANCEL | wxTE_PASSWORD | wxSTAY_ON_TOP, wxDefaultPosition);
    // wx keeps the styles of the text field and drops the one of the window.
    dialog.SetWindowStyleFlag(dialog.GetWindowStyleFlag() | wxSTAY_ON_TOP);
    dialog.SetIcon(frameIcon);
    const auto* const text = wxDynamicCast(wxWindow::FindWindowByLabel(question, &dialog), wxStaticText);
    if (const wxWindow* const field = text == nullptr ? nullptr : text->GetNextSibling())
        NameDialogField(dialog, *field, *text);
    dialog.ShowModal();

    wxString entered = dialog.GetValue();
    const wxScopedCharBuffer utf8 = entered.utf8_str(); // PKCS#11 section 5.6: a PIN is UTF-8
    pin.assign(utf8.data(), utf8.length());
    CkSecureErase(const_cast<char*>(utf8.data()), utf8.length());
    CkSecureErase(const_cast<wxChar*>(entered.wx_str()), entered.length() * sizeof(wxChar));
    // Overwrites the dialog's own value, which is as long.
    dialog.SetValue(wxString('*', entered.length()));
}
