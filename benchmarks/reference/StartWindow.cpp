// The smallest program that shows the host's window, hides it at the first idle event and answers frames, all
// of them with the same one.

#include "Frames.h"
#include "Window.h"

int main(int argc, char** argv) {
    wxApp::SetInstance(new ReferenceApp([](ReferenceWindow&) {
        std::string message;
        while (ReadFrame(message))
            WriteFrame(R"({"status_cd":0,"result":"QMHost Error: echo: ","nonce":""})");
    }));
    return wxEntry(argc, argv);
}
