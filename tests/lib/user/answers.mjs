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
