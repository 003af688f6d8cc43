#include "MainSelectCertificate.h"

wxIMPLEMENT_APP_NO_MAIN(MyApp);

int main(int argc, char** argv) { return wxEntry(argc, argv); }
