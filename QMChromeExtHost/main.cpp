#include "Frames.h"
#include "MainSelectCertificate.h"

wxIMPLEMENT_APP_NO_MAIN(MyApp);

namespace {

// Before main, so that nothing of the toolkit's comes first.
[[gnu::constructor]] void WhenLoaded() { KeepStdoutForFrames(); }

} // namespace

int main(int argc, char** argv) { return wxEntry(argc, argv); }
