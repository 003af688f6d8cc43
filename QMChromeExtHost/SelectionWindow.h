#pragma once

// What the selection flow does to the window.

/// Sends what was changed, such as the hiding of the window, to the display before the host waits for
/// something else. Serves no input of the user.
void SendToDisplay();

/// Lets 250 milliseconds go by: between two looks at the user's answer, and for a fresh window to be drawn.
/// What comes meanwhile is served at once, for a screen reader asks a hundred questions before it says a
/// word.
void Pause();

void YieldPauseYield();

/// Gives the window its size, or what of it the screen has room for, and its place. Hidden at start-up before
/// the window manager had placed it, it may have come back in a corner, and wx may take it to be one pixel
/// high.
void PlaceWindow();

/// A window manager that was only then done with the hiding at start-up has withdrawn the window again, and
/// forgotten that it stays on top: undoes that.
void BringWindowBack();

/// Shows "Loading..." in the window's list, before the token may keep the window from being drawn for long.
void ShowLoadingRow();
