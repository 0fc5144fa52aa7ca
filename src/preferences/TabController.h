#pragma once

// What the preferences window tells the controllers of its tabs. Only the
// conversion queue and the logs tabs are told anything: the conversion tab
// of being shown, hidden and of the window's end, the logs tab only of being
// shown.
class TabController
{
public:
    virtual ~TabController() = default;
    virtual void onShow() {}
    virtual void onHide() {}
    virtual void windowWillClose() {}
};
