#pragma once

// Gives the preferences window the controllers of its tabs and binds the
// playlist picker's layout. Call once, before the first window opens.
void installPreferencesTabs();
