#pragma once

// Registers the form of the layout "Main": the preferences window with its
// two sheets, the window-modal dialogs "closeSheet" and "changePasswordSheet"
// owned by the window. Called by the shell at start-up; repeating it is harmless.
void registerMainForm();
