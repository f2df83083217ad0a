<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="fr">
<context>
    <name></name>
    <message id="KB">
        <source>KB</source>
        <translation>Ko</translation>
    </message>
    <message id="MB">
        <source>MB</source>
        <translation>Mo</translation>
    </message>
    <message id="GB">
        <source>GB</source>
        <translation>Go</translation>
    </message>
    <message id="AppName">
        <source>Salvora 3</source>
        <translation>Salvora 3</translation>
    </message>
    <message id="Today">
        <source>Today</source>
        <translation>Aujourd’hui</translation>
    </message>
    <message id="Yesterday">
        <source>Yesterday</source>
        <translation>Hier</translation>
    </message>
    <message id="PrivilegesNeededTitle">
        <source>Administrator rights needed</source>
        <translation>Droits d’administrateur nécessaires</translation>
    </message>
    <message id="NoAuthenticationAgentText">
        <source>Salvora 3 could not ask for an administrator password: polkit or its authentication agent is not running. Install the packages pkexec and polkitd and the polkit agent of your desktop (for example polkit-kde-agent-1 or policykit-1-gnome), log in again and start Salvora 3 again.</source>
        <translation>Salvora 3 n’a pas pu demander de mot de passe d’administrateur&#xa0;: polkit ou son agent d’authentification ne fonctionne pas. Installez les paquets pkexec et polkitd ainsi que l’agent polkit de votre bureau (par exemple polkit-kde-agent-1 ou policykit-1-gnome), reconnectez-vous, puis relancez Salvora 3.</translation>
    </message>
    <message id="OKButton">
        <source>OK</source>
        <translation>OK</translation>
    </message>
    <message id="QuitButton">
        <source>Quit</source>
        <translation>Quitter</translation>
    </message>
    <message id="PrivilegesNeededText">
        <source>Salvora 3 must install its privileged helper before it can protect your files. You will now be asked for an administrator password.</source>
        <translation>Salvora 3 doit installer son assistant privilégié avant de pouvoir protéger vos fichiers. Un mot de passe d’administrateur va maintenant vous être demandé.</translation>
    </message>
    <message id="BadPrivilegesText">
        <source>Without an administrator password Salvora 3 cannot install its privileged helper, and it will quit now.</source>
        <translation>Sans mot de passe d’administrateur, Salvora 3 ne peut pas installer son assistant privilégié et va maintenant quitter.</translation>
    </message>
    <message id="ExecutableNotFoundText">
        <source>The privileged helper &quot;adminlauncher&quot; of Salvora 3 was not found. Please install Salvora 3 again.</source>
        <translation>L’assistant privilégié «&#xa0;adminlauncher&#xa0;» de Salvora 3 est introuvable. Veuillez réinstaller Salvora 3.</translation>
    </message>
    <message id="BadPermissionsText">
        <source>Salvora 3 could not give its privileged helper the rights it needs. Please install Salvora 3 again.</source>
        <translation>Salvora 3 n’a pas pu donner à son assistant privilégié les droits dont il a besoin. Veuillez réinstaller Salvora 3.</translation>
    </message>
    <message id="BadPermissionsText2">
        <source>Salvora 3 could not give its daemon &quot;sv3daemon&quot; the rights it needs, or the daemon is missing. Please install Salvora 3 again.</source>
        <translation>Salvora 3 n’a pas pu donner à son démon «&#xa0;sv3daemon&#xa0;» les droits dont il a besoin, ou le démon est absent. Veuillez réinstaller Salvora 3.</translation>
    </message>
    <message id="MenuProtectionOn">
        <source>Turn Protection On</source>
        <translation>Activer la protection</translation>
    </message>
    <message id="MenuProtectionOff">
        <source>Turn Protection Off</source>
        <translation>Désactiver la protection</translation>
    </message>
    <message id="MenuOpenApp">
        <source>Open Salvora 3</source>
        <translation>Ouvrir Salvora 3</translation>
    </message>
    <message id="MenuShowLog">
        <source>Show Log</source>
        <translation>Afficher le journal</translation>
    </message>
    <message id="MenuQuit">
        <source>Quit Salvora 3 Menu</source>
        <translation>Quitter Salvora 3 Menu</translation>
    </message>
    <message id="MenuStateOn">
        <source>Protection is on</source>
        <translation>La protection est activée</translation>
    </message>
    <message id="MenuStateOff">
        <source>Protection is off</source>
        <translation>La protection est désactivée</translation>
    </message>
    <message id="MenuSizeUnknown">
        <source>Caches: calculating…</source>
        <translation>Caches&#xa0;: calcul en cours…</translation>
    </message>
    <message id="MenuSize">
        <source>Caches: %1</source>
        <translation>Caches&#xa0;: %1</translation>
    </message>
    <message id="DayOfActivity">
        <source>%1 day of activity (kept %2 days)</source>
        <translation>%1 jour d’activité (conservation&#xa0;: %2 jours)</translation>
    </message>
    <message id="DaysOfActivity">
        <source>%1 days of activity (kept %2 days)</source>
        <translation>%1 jours d’activité (conservation&#xa0;: %2 jours)</translation>
    </message>
    <message id="file">
        <source>file</source>
        <translation>fichier</translation>
    </message>
    <message id="files">
        <source>files</source>
        <translation>fichiers</translation>
    </message>
    <message id="ContentsOfCache">
        <source>Cache: %1</source>
        <translation>Cache&#xa0;: %1</translation>
    </message>
    <message id="CurrentUser">
        <source>%1 (current user)</source>
        <translation>%1 (utilisateur actuel)</translation>
    </message>
    <message id="Unmounted">
        <source>%1 (unmounted)</source>
        <translation>%1 (démonté)</translation>
    </message>
</context>
</TS>
