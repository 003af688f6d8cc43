// The host's window with the token's certificates, by the shortest way: all are read, decoded by libcrypto,
// and put into the list at once. The window is shown and left 250 ms to be drawn first, as the host does.
// Answers a first frame at once, a second one with the moment at which the cards were shown and how long it
// paused before:
// {"shown":<ns>,"paused":<ns>,"cards":…}.
//
//   reference-list <module>

#include "Clock.h"
#include "Frames.h"
#include "Token.h"
#include "Window.h"
#include "support/OpenSsl.h"

#include <wx/utils.h>

#include <exception>

namespace {

wxString Card(const std::string& der) {
    const Owned<X509> certificate = Decoded(d2i_X509, der);
    if (!certificate)
        throw std::runtime_error("not a certificate");
    char name[256] = "";
    X509_NAME_get_text_by_NID(X509_get_subject_name(certificate.get()), NID_commonName, name, sizeof name);
    return wxString::FromUTF8(std::string("<div style='font-family:verdana;'><span style='color:blue;'><b>") +
                              name +
                              "</b>&nbsp;(signer@example.com)</span><br>Quillmark Benchmark <br><span "
                              "style='font-size:80%;'><b>Valid upto: "
                              "Thu, 31 Dec 2099 23:59:59 GMT</b></span></div><hr>");
}

void Serve(ReferenceWindow& window, const char* modulePath) {
    std::string message;
    if (!ReadFrame(message))
        return;
    WriteFrame("{}");
    if (!ReadFrame(message))
        return;
    window.frame->Show();
    wxYield();
    const long long pauseBegin = NowNanoseconds();
    wxMilliSleep(250);
    const long long paused = NowNanoseconds() - pauseBegin;
    wxYield();

    ReferenceToken token(modulePath);
    wxArrayString cards;
    for (const std::string& der : token.Certificates())
        cards.Add(Card(der));
    window.list->Append(cards);
    window.list->SetSelection(0);
    wxYield();
    WriteFrame("{\"shown\":" + std::to_string(NowNanoseconds()) + ",\"paused\":" + std::to_string(paused) +
               ",\"cards\":" + std::to_string(cards.size()) + "}");
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2)
        return 2;
    wxApp::SetInstance(new ReferenceApp([argv](ReferenceWindow& window) {
        try {
            Serve(window, argv[1]);
        } catch (const std::exception& e) {
            std::fprintf(stderr, "reference-list: %s\n", e.what());
        }
    }));
    return wxEntry(argc, argv);
}
