<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="en">
<context>
    <name />
    <message id="KB">
        <source>KB</source>
        <translation>KB</translation>
    </message>
    <message id="MB">
        <source>MB</source>
        <translation>MB</translation>
    </message>
    <message id="GB">
        <source>GB</source>
        <translation>GB</translation>
    </message>
    <message id="AppName">
        <source>Salvora 3</source>
        <translation>Salvora 3</translation>
    </message>
    <message id="Today">
        <source>Today</source>
        <translation>Today</translation>
    </message>
    <message id="Yesterday">
        <source>Yesterday</source>
        <translation>Yesterday</translation>
    </message>
    <message id="PrivilegesNeededTitle">
        <source>Administrator rights needed</source>
        <translation>Administrator rights needed</translation>
    </message>
    <message id="NoAuthenticationAgentText">
        <source>Salvora 3 could not ask for an administrator password: polkit or its authentication agent is not running. Install the packages pkexec and polkitd and the polkit agent of your desktop (for example polkit-kde-agent-1 or policykit-1-gnome), log in again and start Salvora 3 again.</source>
        <translation>Salvora 3 could not ask for an administrator password: polkit or its authentication agent is not running. Install the packages pkexec and polkitd and the polkit agent of your desktop (for example polkit-kde-agent-1 or policykit-1-gnome), log in again and start Salvora 3 again.</translation>
    </message>
    <message id="OKButton">
        <source>OK</source>
        <translation>OK</translation>
    </message>
    <message id="QuitButton">
        <source>Quit</source>
        <translation>Quit</translation>
    </message>
    <message id="PrivilegesNeededText">
        <source>Salvora 3 must install its privileged helper before it can protect your files. You will now be asked for an administrator password.</source>
        <translation>Salvora 3 must install its privileged helper before it can protect your files. You will now be asked for an administrator password.</translation>
    </message>
    <message id="BadPrivilegesText">
        <source>Without an administrator password Salvora 3 cannot install its privileged helper, and it will quit now.</source>
        <translation>Without an administrator password Salvora 3 cannot install its privileged helper, and it will quit now.</translation>
    </message>
    <message id="ExecutableNotFoundText">
        <source>The privileged helper "adminlauncher" of Salvora 3 was not found. Please install Salvora 3 again.</source>
        <translation>The privileged helper "adminlauncher" of Salvora 3 was not found. Please install Salvora 3 again.</translation>
    </message>
    <message id="BadPermissionsText">
        <source>Salvora 3 could not give its privileged helper the rights it needs. Please install Salvora 3 again.</source>
        <translation>Salvora 3 could not give its privileged helper the rights it needs. Please install Salvora 3 again.</translation>
    </message>
    <message id="BadPermissionsText2">
        <source>Salvora 3 could not give its daemon "sv3daemon" the rights it needs, or the daemon is missing. Please install Salvora 3 again.</source>
        <translation>Salvora 3 could not give its daemon "sv3daemon" the rights it needs, or the daemon is missing. Please install Salvora 3 again.</translation>
    </message>
    <message id="MenuProtectionOn">
        <source>Turn Protection On</source>
        <translation>Turn Protection On</translation>
    </message>
    <message id="MenuProtectionOff">
        <source>Turn Protection Off</source>
        <translation>Turn Protection Off</translation>
    </message>
    <message id="MenuOpenApp">
        <source>Open Salvora 3</source>
        <translation>Open Salvora 3</translation>
    </message>
    <message id="MenuShowLog">
        <source>Show Log</source>
        <translation>Show Log</translation>
    </message>
    <message id="MenuQuit">
        <source>Quit Salvora 3 Menu</source>
        <translation>Quit Salvora 3 Menu</translation>
    </message>
    <message id="MenuStateOn">
        <source>Protection is on</source>
        <translation>Protection is on</translation>
    </message>
    <message id="MenuStateOff">
        <source>Protection is off</source>
        <translation>Protection is off</translation>
    </message>
    <message id="MenuSizeUnknown">
        <source>Caches: calculating…</source>
        <translation>Caches: calculating…</translation>
    </message>
    <message id="MenuSize">
        <source>Caches: %1</source>
        <translation>Caches: %1</translation>
    </message>
    <message id="DayOfActivity">
        <source>%1 day of activity (kept %2 days)</source>
        <translation>%1 day of activity (kept %2 days)</translation>
    </message>
    <message id="DaysOfActivity">
        <source>%1 days of activity (kept %2 days)</source>
        <translation>%1 days of activity (kept %2 days)</translation>
    </message>
    <message id="file">
        <source>file</source>
        <translation>file</translation>
    </message>
    <message id="files">
        <source>files</source>
        <translation>files</translation>
    </message>
    <message id="ContentsOfCache">
        <source>Cache: %1</source>
        <translation>Cache: %1</translation>
    </message>
    <message id="CurrentUser">
        <source>%1 (current user)</source>
        <translation>%1 (current user)</translation>
    </message>
    <message id="Unmounted">
        <source>%1 (unmounted)</source>
        <translation>%1 (unmounted)</translation>
    </message>
    <message id="MovedIntoCacheAt">
        <source>Moved into the cache at %1</source>
        <translation>Moved into the cache at %1</translation>
    </message>
    <message id="ContextualMenuRevealInFinder">
        <source>Show “%1” in the File Manager</source>
        <translation>Show “%1” in the File Manager</translation>
    </message>
    <message id="ContextualMenuDelete">
        <source>Delete “%1” from the Cache…</source>
        <translation>Delete “%1” from the Cache…</translation>
    </message>
    <message id="NewVersion">
        <source>Salvora 3 version %1 is available (you have version %2).</source>
        <translation>Salvora 3 version %1 is available (you have version %2).</translation>
    </message>
    <message id="WebDownload">
        <source>https://salvora.org/download/</source>
        <translation>https://salvora.org/download/</translation>
    </message>
    <message id="Never">
        <source>Never</source>
        <translation>Never</translation>
    </message>
    <message id="DaysOfActivityUnlimited">
        <source>Deleted items stay in the cache until you delete them yourself.</source>
        <translation>Deleted items stay in the cache until you delete them yourself.</translation>
    </message>
    <message id="OneDay">
        <source>%1 day</source>
        <translation>%1 day</translation>
    </message>
    <message id="ManyDays">
        <source>%1 days</source>
        <translation>%1 days</translation>
    </message>
    <message id="DaysOfActivityNormal">
        <source>Deleted items leave the cache after this many days of activity.</source>
        <translation>Deleted items leave the cache after this many days of activity.</translation>
    </message>
    <message id="DaysOfActivityLower">
        <source>The days of activity beyond this limit will be removed from the cache.</source>
        <translation>The days of activity beyond this limit will be removed from the cache.</translation>
    </message>
    <message id="DeleteContentsTitle">
        <source>Delete the selected items from the cache?</source>
        <translation>Delete the selected items from the cache?</translation>
    </message>
    <message id="DeleteContentsText">
        <source>The items will be deleted for good. This cannot be undone.</source>
        <translation>The items will be deleted for good. This cannot be undone.</translation>
    </message>
    <message id="DeleteDaysTitle">
        <source>Delete the selected days from the cache?</source>
        <translation>Delete the selected days from the cache?</translation>
    </message>
    <message id="DeleteDaysText">
        <source>Every item cached on these days will be deleted for good. This cannot be undone.</source>
        <translation>Every item cached on these days will be deleted for good. This cannot be undone.</translation>
    </message>
    <message id="DeleteAllCachesTitle">
        <source>Delete every cache?</source>
        <translation>Delete every cache?</translation>
    </message>
    <message id="DeleteAllCachesText">
        <source>Every item kept on every protected volume will be deleted for good, and the protection will be switched off. This cannot be undone.</source>
        <translation>Every item kept on every protected volume will be deleted for good, and the protection will be switched off. This cannot be undone.</translation>
    </message>
    <message id="CancelButton">
        <source>Cancel</source>
        <translation>Cancel</translation>
    </message>
    <message id="DeleteButton">
        <source>Delete</source>
        <translation>Delete</translation>
    </message>
    <message id="StartProtection">
        <source>Start Protection</source>
        <translation>Start Protection</translation>
    </message>
    <message id="StopProtection">
        <source>Stop Protection</source>
        <translation>Stop Protection</translation>
    </message>
    <message id="RemoveItem">
        <source>Delete</source>
        <translation>Delete</translation>
    </message>
    <message id="Settings">
        <source>Settings</source>
        <translation>Settings</translation>
    </message>
    <message id="ShowHelp">
        <source>Help</source>
        <translation>Help</translation>
    </message>
    <message id="MenuAbout">
        <source>&amp;About Salvora 3</source>
        <translation>&amp;About Salvora 3</translation>
    </message>
    <message id="CommandRemoveSelectedDays">
        <source>Delete the Selected &amp;Days…</source>
        <translation>Delete the Selected &amp;Days…</translation>
    </message>
    <message id="CommandRemoveAllCaches">
        <source>Delete &amp;All Caches…</source>
        <translation>Delete &amp;All Caches…</translation>
    </message>
    <message id="CommandGetStatus">
        <source>Get &amp;Status</source>
        <translation>Get &amp;Status</translation>
    </message>
    <message id="CommandOpenLogs">
        <source>Open the &amp;Log</source>
        <translation>Open the &amp;Log</translation>
    </message>
    <message id="CommandToggleProtection">
        <source>Switch &amp;Protection On or Off</source>
        <translation>Switch &amp;Protection On or Off</translation>
    </message>
    <message id="CommandTogglePreview">
        <source>&amp;Preview</source>
        <translation>&amp;Preview</translation>
    </message>
    <message id="CommandQuit">
        <source>&amp;Quit</source>
        <translation>&amp;Quit</translation>
    </message>
    <message id="MenuFile">
        <source>&amp;File</source>
        <translation>&amp;File</translation>
    </message>
    <message id="MenuEdit">
        <source>&amp;Edit</source>
        <translation>&amp;Edit</translation>
    </message>
    <message id="MenuView">
        <source>&amp;View</source>
        <translation>&amp;View</translation>
    </message>
    <message id="MenuHelp">
        <source>&amp;Help</source>
        <translation>&amp;Help</translation>
    </message>
    <message id="VolumeColumn">
        <source>Volume</source>
        <translation>Volume</translation>
    </message>
    <message id="ProtectedUnmounted">
        <source>protected, not mounted</source>
        <translation>protected, not mounted</translation>
    </message>
    <message id="Protected">
        <source>protected</source>
        <translation>protected</translation>
    </message>
    <message id="NotProtected">
        <source>not protected</source>
        <translation>not protected</translation>
    </message>
    <message id="PreferencesTitle">
        <source>Settings</source>
        <translation>Settings</translation>
    </message>
    <message id="PreferencesRetention">
        <source>Keep deleted items</source>
        <translation>Keep deleted items</translation>
    </message>
    <message id="PreferencesProtectionEnabled">
        <source>Keep the items that are deleted</source>
        <translation>Keep the items that are deleted</translation>
    </message>
    <message id="PreferencesLaunchMenu">
        <source>Show Salvora 3 Menu in the panel</source>
        <translation>Show Salvora 3 Menu in the panel</translation>
    </message>
    <message id="PreferencesExcludeName">
        <source>Exclude names:</source>
        <translation>Exclude names:</translation>
    </message>
    <message id="PreferencesExcludeExtensions">
        <source>Exclude extensions:</source>
        <translation>Exclude extensions:</translation>
    </message>
    <message id="ProtectVolume">
        <source>Protect</source>
        <translation>Protect</translation>
    </message>
    <message id="UnprotectVolume">
        <source>Do Not Protect</source>
        <translation>Do Not Protect</translation>
    </message>
    <message id="VolumeWithoutIdentifier">
        <source>%1 has no volume identifier, so Salvora 3 could not recognise it later: it will not be protected.</source>
        <translation>%1 has no volume identifier, so Salvora 3 could not recognise it later: it will not be protected.</translation>
    </message>
    <message id="PreviewTitle">
        <source>Preview</source>
        <translation>Preview</translation>
    </message>
    <message id="ContentsMessageNoVolume">
        <source>This volume is not mounted: its items cannot be listed.</source>
        <translation>This volume is not mounted: its items cannot be listed.</translation>
    </message>
    <message id="ContentsMessage">
        <source>1 item</source>
        <translation>1 item</translation>
    </message>
    <message id="ContentsMessages">
        <source>%1 items</source>
        <translation>%1 items</translation>
    </message>
    <message id="ContentsMessageSearchEmpty">
        <source>No item matches the search.</source>
        <translation>No item matches the search.</translation>
    </message>
    <message id="ContentsMessageEmpty">
        <source>No item in the cache for these days.</source>
        <translation>No item in the cache for these days.</translation>
    </message>
    <message id="WindowTitle">
        <source>Salvora 3</source>
        <translation>Salvora 3</translation>
    </message>
    <message id="VolumeLabel">
        <source>Volume:</source>
        <translation>Volume:</translation>
    </message>
    <message id="NewVersionAvailable">
        <source>A new version is available.</source>
        <translation>A new version is available.</translation>
    </message>
    <message id="NewVersionButton">
        <source>Download…</source>
        <translation>Download…</translation>
    </message>
    <message id="SearchPlaceholder">
        <source>Search the names of the items</source>
        <translation>Search the names of the items</translation>
    </message>
    <message id="AboutTitle">
        <source>About Salvora 3</source>
        <translation>About Salvora 3</translation>
    </message>
    <message id="AboutText">
        <source>Keeps what you delete, so that you can get it back.</source>
        <translation>Keeps what you delete, so that you can get it back.</translation>
    </message>
    <message id="ColumnDate">
        <source>Date</source>
        <translation>Date</translation>
    </message>
    <message id="ColumnSize">
        <source>Size</source>
        <translation>Size</translation>
    </message>
    <message id="ColumnCount">
        <source>Items</source>
        <translation>Items</translation>
    </message>
    <message id="ColumnName">
        <source>Name</source>
        <translation>Name</translation>
    </message>
    <message id="ColumnCachingTime">
        <source>Moved to the cache</source>
        <translation>Moved to the cache</translation>
    </message>
    <message id="ProtectionDisabled">
        <source>Protection is off.</source>
        <translation>Protection is off.</translation>
    </message>
    <message id="ProtectionDisabledMore">
        <source>Deleted items are not kept. Start the protection to keep them.</source>
        <translation>Deleted items are not kept. Start the protection to keep them.</translation>
    </message>
    <message id="ProtectionEnabled">
        <source>Protection is on for %1 volume</source>
        <translation>Protection is on for %1 volume</translation>
    </message>
    <message id="ProtectionEnabledX">
        <source>Protection is on for %1 of %2 volumes</source>
        <translation>Protection is on for %1 of %2 volumes</translation>
    </message>
    <message id="EmptyCache">
        <source>the cache is empty</source>
        <translation>the cache is empty</translation>
    </message>
    <message id="SizeOfCache">
        <source>the cache holds %1</source>
        <translation>the cache holds %1</translation>
    </message>
    <message id="SizeOfCaches">
        <source>the caches hold %1</source>
        <translation>the caches hold %1</translation>
    </message>
    <message id="ProtectionEnabledMoreX">
        <source>Items deleted on the %1 protected volumes are kept in their caches.</source>
        <translation>Items deleted on the %1 protected volumes are kept in their caches.</translation>
    </message>
    <message id="ProtectionEnabledMore">
        <source>Items deleted on the protected volume are kept in its cache.</source>
        <translation>Items deleted on the protected volume are kept in its cache.</translation>
    </message>
    <message id="ProgressRestoring">
        <source>Restoring %1 of %2</source>
        <translation>Restoring %1 of %2</translation>
    </message>
    <message id="ProgressDeleting">
        <source>Deleting %1 of %2</source>
        <translation>Deleting %1 of %2</translation>
    </message>
    <message id="CacheReady">
        <source>Deleted items are kept here.</source>
        <translation>Deleted items are kept here.</translation>
    </message>
    <message id="CacheNoVolume">
        <source>The volume cannot be opened.</source>
        <translation>The volume cannot be opened.</translation>
    </message>
    <message id="CacheMissing">
        <source>Nothing has been kept on this volume yet.</source>
        <translation>Nothing has been kept on this volume yet.</translation>
    </message>
    <message id="CacheNeedsHelper">
        <source>The daemon has not set up this volume's cache yet; on a volume only an administrator may write to, an administrator must allow it once.</source>
        <translation>The daemon has not set up this volume's cache yet; on a volume only an administrator may write to, an administrator must allow it once.</translation>
    </message>
    <message id="CacheUnsafe">
        <source>Nothing is kept on this volume: a link or a file, or a folder open to every account, stands where its cache should be.</source>
        <translation>Nothing is kept on this volume: a link or a file, or a folder open to every account, stands where its cache should be.</translation>
    </message>
    <message id="CacheNotOwned">
        <source>Nothing is kept on this volume: another account's folder stands where your cache should be.</source>
        <translation>Nothing is kept on this volume: another account's folder stands where your cache should be.</translation>
    </message>
    <message id="CacheOtherDevice">
        <source>Nothing is kept on this volume: another volume is mounted where its cache should be.</source>
        <translation>Nothing is kept on this volume: another volume is mounted where its cache should be.</translation>
    </message>
    <message id="CacheFailed">
        <source>Nothing is kept on this volume: %1.</source>
        <translation>Nothing is kept on this volume: %1.</translation>
    </message>
    <message id="VolumeKeepsNothing">
        <source>%1: %2</source>
        <translation>%1: %2</translation>
    </message>
    <message id="IncompleteFilesAndBytes" numerus="yes">
        <source>Kept in part: %n file(s) and %1 missing</source>
        <translation><numerusform>Kept in part: %n file and %1 missing</numerusform><numerusform>Kept in part: %n files and %1 missing</numerusform></translation>
    </message>
    <message id="IncompleteFiles" numerus="yes">
        <source>Kept in part: %n file(s) missing</source>
        <translation><numerusform>Kept in part: %n file missing</numerusform><numerusform>Kept in part: %n files missing</numerusform></translation>
    </message>
    <message id="IncompleteBytes">
        <source>Kept in part: %1 missing</source>
        <translation>Kept in part: %1 missing</translation>
    </message>
    <message id="IncompleteUnknown">
        <source>Kept in part: some of it could not be saved</source>
        <translation>Kept in part: some of it could not be saved</translation>
    </message>
    <message id="LossesSince" numerus="yes">
        <source>%n item(s) could not be kept since %1</source>
        <translation><numerusform>%n item could not be kept since %1</numerusform><numerusform>%n items could not be kept since %1</numerusform></translation>
    </message>
    <message id="LossesShow">
        <source>Show Which…</source>
        <translation>Show Which…</translation>
    </message>
    <message id="LossesTitle">
        <source>Items Not Kept</source>
        <translation>Items Not Kept</translation>
    </message>
    <message id="LossesColumnTime">
        <source>Time</source>
        <translation>Time</translation>
    </message>
    <message id="LossesColumnItem">
        <source>Item</source>
        <translation>Item</translation>
    </message>
    <message id="LossesColumnKept">
        <source>Kept</source>
        <translation>Kept</translation>
    </message>
    <message id="LossesColumnReason">
        <source>Reason</source>
        <translation>Reason</translation>
    </message>
    <message id="LossesMarkSeen">
        <source>Mark as Seen</source>
        <translation>Mark as Seen</translation>
    </message>
    <message id="LossesNone">
        <source>Every item was kept.</source>
        <translation>Every item was kept.</translation>
    </message>
    <message id="LossesKeptInPart">
        <source>In part</source>
        <translation>In part</translation>
    </message>
    <message id="LossesNotKept">
        <source>No</source>
        <translation>No</translation>
    </message>
    <message id="RestoreToItem">
        <source>Restore To…</source>
        <translation>Restore To…</translation>
    </message>
    <message id="PutBackNameTaken">
        <source>An item named “%1” already exists in %2.</source>
        <translation>An item named “%1” already exists in %2.</translation>
    </message>
    <message id="PutBackNamesTaken">
        <source>%1 items already exist where the selected items were.</source>
        <translation>%1 items already exist where the selected items were.</translation>
    </message>
    <message id="PutBackNameTakenText">
        <source>Keep Both puts an item back under a numbered name; Skip leaves it in the cache.</source>
        <translation>Keep Both puts an item back under a numbered name; Skip leaves it in the cache.</translation>
    </message>
    <message id="KeepBothButton">
        <source>Keep Both</source>
        <translation>Keep Both</translation>
    </message>
    <message id="SkipButton">
        <source>Skip</source>
        <translation>Skip</translation>
    </message>
    <message id="MessageBarShow">
        <source>Show</source>
        <translation>Show</translation>
    </message>
    <message id="PutBackTip">
        <source>Put the selected items back where they were deleted from</source>
        <translation>Put the selected items back where they were deleted from</translation>
    </message>
    <message id="PutBackNoOriginTip">
        <source>Where the selected items were deleted from is not known: use Restore To… instead</source>
        <translation>Where the selected items were deleted from is not known: use Restore To… instead</translation>
    </message>
    <message id="DeleteOneItemTitle">
        <source>Delete “%1” for good?</source>
        <translation>Delete “%1” for good?</translation>
    </message>
    <message id="DeleteItemsTitle">
        <source>Delete %1 items for good?</source>
        <translation>Delete %1 items for good?</translation>
    </message>
    <message id="RestoreItemFailed">
        <source>“%1” was not restored: %2</source>
        <translation>“%1” was not restored: %2</translation>
    </message>
    <message id="RestoreStopped">
        <source>stopped</source>
        <translation>stopped</translation>
    </message>
    <message id="RestorePartial">
        <source>“%1” was restored without what could not be copied: %2</source>
        <translation>“%1” was restored without what could not be copied: %2</translation>
    </message>
    <message id="PutBackNoOrigin">
        <source>“%1” was not put back: where it was deleted from is not known. Use Restore To… instead.</source>
        <translation>“%1” was not put back: where it was deleted from is not known. Use Restore To… instead.</translation>
    </message>
    <message id="RestoreNameTaken">
        <source>1 item was not restored because its name is taken in %1: %2</source>
        <translation>1 item was not restored because its name is taken in %1: %2</translation>
    </message>
    <message id="RestoreNamesTaken">
        <source>%1 items were not restored because their names are taken in %2: %3</source>
        <translation>%1 items were not restored because their names are taken in %2: %3</translation>
    </message>
    <message id="PutBackDone1">
        <source>1 item put back in %1</source>
        <translation>1 item put back in %1</translation>
    </message>
    <message id="PutBackDone">
        <source>%1 items put back in %2</source>
        <translation>%1 items put back in %2</translation>
    </message>
    <message id="PutBackDoneMany">
        <source>%1 items put back where they were</source>
        <translation>%1 items put back where they were</translation>
    </message>
    <message id="RestoreDone1">
        <source>1 item restored to %1</source>
        <translation>1 item restored to %1</translation>
    </message>
    <message id="RestoreDone">
        <source>%1 items restored to %2</source>
        <translation>%1 items restored to %2</translation>
    </message>
    <message id="ColumnOriginalLocation">
        <source>Original Location</source>
        <translation>Original Location</translation>
    </message>
    <message id="PutBackItem">
        <source>Put Back</source>
        <translation>Put Back</translation>
    </message>
    <message id="CommandRefresh">
        <source>&amp;Refresh</source>
        <translation>&amp;Refresh</translation>
    </message>
    <message id="CommandFind">
        <source>&amp;Find</source>
        <translation>&amp;Find</translation>
    </message>
    <message id="MessageBarDismiss">
        <source>Dismiss</source>
        <translation>Dismiss</translation>
    </message>
    <message id="PreferencesExcludeNamePlaceholder">
        <source>Names separated by “;”, e.g. .DS_Store;Thumbs.db</source>
        <translation>Names separated by “;”, e.g. .DS_Store;Thumbs.db</translation>
    </message>
    <message id="PreferencesExcludeExtensionsPlaceholder">
        <source>Extensions separated by “;”, e.g. tmp;part</source>
        <translation>Extensions separated by “;”, e.g. tmp;part</translation>
    </message>
    <message id="RestoreToTitle">
        <source>Restore To</source>
        <translation>Restore To</translation>
    </message>
    <message id="KeepLibraryMissing">
        <source>The part of Salvora 3 that keeps them is not installed.</source>
        <translation>The part of Salvora 3 that keeps them is not installed.</translation>
    </message>
    <message id="KeepSessionHasIt">
        <source>This session keeps them.</source>
        <translation>This session keeps them.</translation>
    </message>
    <message id="KeepFromNextLogin">
        <source>Takes effect at your next login: this session does not keep them yet.</source>
        <translation>Takes effect at your next login: this session does not keep them yet.</translation>
    </message>
    <message id="KeepStopsAtNextLogin">
        <source>Stops at your next login: this session still keeps them.</source>
        <translation>Stops at your next login: this session still keeps them.</translation>
    </message>
    <message id="SpaceGuardRemovedDays">
        <source>Oldest days were removed to keep %1 free on %2.</source>
        <translation>Oldest days were removed to keep %1 free on %2.</translation>
    </message>
    <message id="PreferencesKeepFree">
        <source>Space kept free on protected volumes:</source>
        <translation>Space kept free on protected volumes:</translation>
    </message>
    <message id="PreferencesKeepFreeAtMost">
        <source>but at most</source>
        <translation>but at most</translation>
    </message>
    <message id="PreferencesKeepFreeTip">
        <source>When a protected volume has less free space, the oldest days of its cache are removed (never today's).</source>
        <translation>When a protected volume has less free space, the oldest days of its cache are removed (never today's).</translation>
    </message>
    <message id="PreferencesKeepPermanentDeletions">
        <source>Also keep files deleted permanently (rm, Shift+Delete)</source>
        <translation>Also keep files deleted permanently (rm, Shift+Delete)</translation>
    </message>
</context>
</TS>