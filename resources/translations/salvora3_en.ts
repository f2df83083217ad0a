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
</context>
</TS>