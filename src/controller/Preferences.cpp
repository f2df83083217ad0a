#include "controller/AppDelegate.h"

#include "ui/PreferencesSheet.h"

void AppDelegate::editPreferences()
{
    // The sheet loads its controls and volume rows, and on OK saves them and refreshes the
    // window through this controller (PreferencesTarget).
    mPreferencesWindow->editPreferences(*this);
}
