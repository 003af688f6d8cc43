// Stands in for the toolkit's wxMilliSleep in a host whose user answers as soon as the cards are shown. The
// answer tells the moment, how long the host paused before, and the number of cards, so that the time from
// the request to the cards can be measured less the pauses: "shown=<ns> paused=<ns> cards=<n>", which names
// no certificate and so comes back in the reply.

#include "../reference/Clock.h"
#include "QMNativeMessagingHost.h"

#include <wx/htmllbox.h>
#include <wx/utils.h>

#include <ctime>

namespace {

bool CardsAreShown() { return !htmlLstCert->IsEmpty() && !htmlLstCert->GetString(0).Contains("Loading..."); }

} // namespace

void wxMilliSleep(unsigned long milliseconds) {
    static long long paused = 0;
    const long long now = NowNanoseconds();
    if (CardsAreShown()) { // the pause of the wait for the user, after the cards were drawn
        selCKA_ID = "shown=" + std::to_string(now) + " paused=" + std::to_string(paused) +
                    " cards=" + std::to_string(htmlLstCert->GetItemCount());
        QMNativeMessagingHost::bSelCertUIOpen = false;
        return;
    }
    const std::timespec time = {0, static_cast<long>(milliseconds) * 1'000'000};
    nanosleep(&time, nullptr);
    paused += NowNanoseconds() - now;
}
