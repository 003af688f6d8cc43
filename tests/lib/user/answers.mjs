// A request together with what the user answers to it.

/** Sends a request that shows the window, presses OK there, and gives the reply. */
export async function chooseFirst(host, request) {
  host.send(request);
  await host.user.clickOk();
  return host.reply();
}

/** Like chooseFirst, for a request that goes on to ask for the PIN. */
export async function chooseAndLogIn(host, request, pin = "1234") {
  host.send(request);
  await host.user.clickOk();
  await host.user.enterPin(pin);
  return host.reply();
}

/** Like chooseFirst, but presses Cancel. */
export async function cancelChoice(host, request) {
  host.send(request);
  await host.user.clickCancel();
  return host.reply();
}

/** Sends a request that shows the window, and gives the window once the cards are in it. */
export function openWindow(host, request) {
  host.send(request);
  return host.user.window();
}

/** Sends a request, presses OK, and gives the dialog that asks for the PIN. */
export async function openPinDialog(host, request) {
  host.send(request);
  await host.user.clickOk();
  return host.user.pinWindow();
}
