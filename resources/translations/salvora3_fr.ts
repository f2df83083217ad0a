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
    <message id="MovedIntoCacheAt">
        <source>Moved into the cache at %1</source>
        <translation>Placé dans le cache à %1</translation>
    </message>
    <message id="ContextualMenuRevealInFinder">
        <source>Show “%1” in the File Manager</source>
        <translation>Afficher «&#xa0;%1&#xa0;» dans le gestionnaire de fichiers</translation>
    </message>
    <message id="ContextualMenuDelete">
        <source>Delete “%1” from the Cache…</source>
        <translation>Supprimer «&#xa0;%1&#xa0;» du cache…</translation>
    </message>
    <message id="NewVersion">
        <source>Salvora 3 version %1 is available (you have version %2).</source>
        <translation>La version %1 de Salvora 3 est disponible (vous avez la version %2).</translation>
    </message>
    <message id="WebDownload">
        <source>https://salvora.org/download/</source>
        <translation>https://salvora.org/download/</translation>
    </message>
    <message id="Never">
        <source>Never</source>
        <translation>Jamais</translation>
    </message>
    <message id="DaysOfActivityUnlimited">
        <source>Deleted items stay in the cache until you delete them yourself.</source>
        <translation>Les éléments supprimés restent dans le cache jusqu’à ce que vous les supprimiez vous-même.</translation>
    </message>
    <message id="OneDay">
        <source>%1 day</source>
        <translation>%1 jour</translation>
    </message>
    <message id="ManyDays">
        <source>%1 days</source>
        <translation>%1 jours</translation>
    </message>
    <message id="DaysOfActivityNormal">
        <source>Deleted items leave the cache after this many days of activity.</source>
        <translation>Les éléments supprimés quittent le cache après ce nombre de jours d’activité.</translation>
    </message>
    <message id="DaysOfActivityLower">
        <source>The days of activity beyond this limit will be removed from the cache.</source>
        <translation>Les jours d’activité au-delà de cette limite seront retirés du cache.</translation>
    </message>
    <message id="DeleteContentsTitle">
        <source>Delete the selected items from the cache?</source>
        <translation>Supprimer du cache les éléments sélectionnés&#xa0;?</translation>
    </message>
    <message id="DeleteContentsText">
        <source>The items will be deleted for good. This cannot be undone.</source>
        <translation>Les éléments seront supprimés définitivement. Cette opération est irréversible.</translation>
    </message>
    <message id="DeleteDaysTitle">
        <source>Delete the selected days from the cache?</source>
        <translation>Supprimer du cache les jours sélectionnés&#xa0;?</translation>
    </message>
    <message id="DeleteDaysText">
        <source>Every item cached on these days will be deleted for good. This cannot be undone.</source>
        <translation>Tous les éléments placés dans le cache ces jours-là seront supprimés définitivement. Cette opération est irréversible.</translation>
    </message>
    <message id="DeleteAllCachesTitle">
        <source>Delete every cache?</source>
        <translation>Supprimer tous les caches&#xa0;?</translation>
    </message>
    <message id="DeleteAllCachesText">
        <source>Every item kept on every protected volume will be deleted for good, and the protection will be switched off. This cannot be undone.</source>
        <translation>Tous les éléments conservés sur tous les volumes protégés seront supprimés définitivement et la protection sera désactivée. Cette opération est irréversible.</translation>
    </message>
    <message id="CancelButton">
        <source>Cancel</source>
        <translation>Annuler</translation>
    </message>
    <message id="DeleteButton">
        <source>Delete</source>
        <translation>Supprimer</translation>
    </message>
    <message id="StartProtection">
        <source>Start Protection</source>
        <translation>Activer la protection</translation>
    </message>
    <message id="StopProtection">
        <source>Stop Protection</source>
        <translation>Désactiver la protection</translation>
    </message>
    <message id="RemoveItem">
        <source>Delete</source>
        <translation>Supprimer</translation>
    </message>
    <message id="Settings">
        <source>Settings</source>
        <translation>Réglages</translation>
    </message>
    <message id="ShowHelp">
        <source>Help</source>
        <translation>Aide</translation>
    </message>
    <message id="MenuAbout">
        <source>&amp;About Salvora 3</source>
        <translation>À &amp;propos de Salvora 3</translation>
    </message>
    <message id="CommandRemoveSelectedDays">
        <source>Delete the Selected &amp;Days…</source>
        <translation>Supprimer les &amp;jours sélectionnés…</translation>
    </message>
    <message id="CommandRemoveAllCaches">
        <source>Delete &amp;All Caches…</source>
        <translation>Supprimer &amp;tous les caches…</translation>
    </message>
    <message id="CommandGetStatus">
        <source>Get &amp;Status</source>
        <translation>Obtenir l’é&amp;tat</translation>
    </message>
    <message id="CommandOpenLogs">
        <source>Open the &amp;Log</source>
        <translation>Ouvrir le &amp;journal</translation>
    </message>
    <message id="CommandToggleProtection">
        <source>Switch &amp;Protection On or Off</source>
        <translation>Activer ou désactiver la &amp;protection</translation>
    </message>
    <message id="CommandTogglePreview">
        <source>&amp;Preview</source>
        <translation>&amp;Aperçu</translation>
    </message>
    <message id="CommandQuit">
        <source>&amp;Quit</source>
        <translation>&amp;Quitter</translation>
    </message>
    <message id="MenuFile">
        <source>&amp;File</source>
        <translation>&amp;Fichier</translation>
    </message>
    <message id="MenuEdit">
        <source>&amp;Edit</source>
        <translation>&amp;Édition</translation>
    </message>
    <message id="MenuView">
        <source>&amp;View</source>
        <translation>&amp;Affichage</translation>
    </message>
    <message id="MenuHelp">
        <source>&amp;Help</source>
        <translation>Ai&amp;de</translation>
    </message>
    <message id="VolumeColumn">
        <source>Volume</source>
        <translation>Volume</translation>
    </message>
    <message id="ProtectedUnmounted">
        <source>protected, not mounted</source>
        <translation>protégé, non monté</translation>
    </message>
    <message id="Protected">
        <source>protected</source>
        <translation>protégé</translation>
    </message>
    <message id="NotProtected">
        <source>not protected</source>
        <translation>non protégé</translation>
    </message>
    <message id="PreferencesTitle">
        <source>Settings</source>
        <translation>Réglages</translation>
    </message>
    <message id="PreferencesRetention">
        <source>Keep deleted items</source>
        <translation>Conserver les éléments supprimés</translation>
    </message>
    <message id="PreferencesProtectionEnabled">
        <source>Keep the items that are deleted</source>
        <translation>Conserver les éléments qui sont supprimés</translation>
    </message>
    <message id="PreferencesLaunchMenu">
        <source>Show Salvora 3 Menu in the panel</source>
        <translation>Afficher Salvora 3 Menu dans le tableau de bord</translation>
    </message>
    <message id="PreferencesExcludeName">
        <source>Exclude names:</source>
        <translation>Noms exclus&#xa0;:</translation>
    </message>
    <message id="PreferencesExcludeExtensions">
        <source>Exclude extensions:</source>
        <translation>Extensions exclues&#xa0;:</translation>
    </message>
    <message id="ProtectVolume">
        <source>Protect</source>
        <translation>Protéger</translation>
    </message>
    <message id="UnprotectVolume">
        <source>Do Not Protect</source>
        <translation>Ne pas protéger</translation>
    </message>
    <message id="VolumeWithoutIdentifier">
        <source>%1 has no volume identifier, so Salvora 3 could not recognise it later: it will not be protected.</source>
        <translation>%1 n’a pas d’identifiant de volume&#xa0;: Salvora 3 ne pourrait pas le reconnaître plus tard, il ne sera donc pas protégé.</translation>
    </message>
    <message id="PreviewTitle">
        <source>Preview</source>
        <translation>Aperçu</translation>
    </message>
    <message id="ContentsMessageNoVolume">
        <source>This volume is not mounted: its items cannot be listed.</source>
        <translation>Ce volume n’est pas monté&#xa0;: ses éléments ne peuvent pas être listés.</translation>
    </message>
    <message id="ContentsMessage">
        <source>1 item</source>
        <translation>1 élément</translation>
    </message>
    <message id="ContentsMessages">
        <source>%1 items</source>
        <translation>%1 éléments</translation>
    </message>
    <message id="ContentsMessageSearchEmpty">
        <source>No item matches the search.</source>
        <translation>Aucun élément ne correspond à la recherche.</translation>
    </message>
    <message id="ContentsMessageEmpty">
        <source>No item in the cache for these days.</source>
        <translation>Aucun élément dans le cache pour ces jours.</translation>
    </message>
    <message id="WindowTitle">
        <source>Salvora 3</source>
        <translation>Salvora 3</translation>
    </message>
    <message id="VolumeLabel">
        <source>Volume:</source>
        <translation>Volume&#xa0;:</translation>
    </message>
    <message id="NewVersionAvailable">
        <source>A new version is available.</source>
        <translation>Une nouvelle version est disponible.</translation>
    </message>
    <message id="NewVersionButton">
        <source>Download…</source>
        <translation>Télécharger…</translation>
    </message>
    <message id="SearchPlaceholder">
        <source>Search the names of the items</source>
        <translation>Rechercher dans les noms des éléments</translation>
    </message>
    <message id="AboutTitle">
        <source>About Salvora 3</source>
        <translation>À propos de Salvora 3</translation>
    </message>
    <message id="AboutText">
        <source>Keeps what you delete, so that you can get it back.</source>
        <translation>Garde ce que vous supprimez, pour que vous puissiez le récupérer.</translation>
    </message>
    <message id="ColumnDate">
        <source>Date</source>
        <translation>Date</translation>
    </message>
    <message id="ColumnSize">
        <source>Size</source>
        <translation>Taille</translation>
    </message>
    <message id="ColumnCount">
        <source>Items</source>
        <translation>Éléments</translation>
    </message>
    <message id="ColumnName">
        <source>Name</source>
        <translation>Nom</translation>
    </message>
    <message id="ColumnCachingTime">
        <source>Moved to the cache</source>
        <translation>Placé dans le cache</translation>
    </message>
    <message id="ProtectionDisabled">
        <source>Protection is off.</source>
        <translation>La protection est désactivée.</translation>
    </message>
    <message id="ProtectionDisabledMore">
        <source>Deleted items are not kept. Start the protection to keep them.</source>
        <translation>Les éléments supprimés ne sont pas conservés. Activez la protection pour les conserver.</translation>
    </message>
    <message id="ProtectionEnabled">
        <source>Protection is on for %1 volume</source>
        <translation>La protection est active pour %1 volume</translation>
    </message>
    <message id="ProtectionEnabledX">
        <source>Protection is on for %1 of %2 volumes</source>
        <translation>La protection est active pour %1 volumes sur %2</translation>
    </message>
    <message id="EmptyCache">
        <source>the cache is empty</source>
        <translation>le cache est vide</translation>
    </message>
    <message id="SizeOfCache">
        <source>the cache holds %1</source>
        <translation>le cache contient %1</translation>
    </message>
    <message id="SizeOfCaches">
        <source>the caches hold %1</source>
        <translation>les caches contiennent %1</translation>
    </message>
    <message id="ProtectionEnabledMoreX">
        <source>Items deleted on the %1 protected volumes are kept in their caches.</source>
        <translation>Les éléments supprimés sur les %1 volumes protégés sont conservés dans leurs caches.</translation>
    </message>
    <message id="ProtectionEnabledMore">
        <source>Items deleted on the protected volume are kept in its cache.</source>
        <translation>Les éléments supprimés sur le volume protégé sont conservés dans son cache.</translation>
    </message>
    <message id="ProgressRestoring">
        <source>Restoring %1 of %2</source>
        <translation>Restauration de %1 sur %2</translation>
    </message>
    <message id="ProgressDeleting">
        <source>Deleting %1 of %2</source>
        <translation>Suppression de %1 sur %2</translation>
    </message>
    <message id="CacheReady">
        <source>Deleted items are kept here.</source>
        <translation>Les éléments supprimés sont conservés ici.</translation>
    </message>
    <message id="CacheNoVolume">
        <source>The volume cannot be opened.</source>
        <translation>Le volume ne peut pas être ouvert.</translation>
    </message>
    <message id="CacheMissing">
        <source>Nothing has been kept on this volume yet.</source>
        <translation>Rien n’a encore été conservé sur ce volume.</translation>
    </message>
    <message id="CacheNeedsHelper">
        <source>The daemon has not set up this volume&apos;s cache yet; on a volume only an administrator may write to, an administrator must allow it once.</source>
        <translation>Le démon n’a pas encore préparé le cache de ce volume ; sur un volume où seul un administrateur peut écrire, un administrateur doit l’autoriser une fois.</translation>
    </message>
    <message id="CacheUnsafe">
        <source>Nothing is kept on this volume: a link or a file, or a folder open to every account, stands where its cache should be.</source>
        <translation>Rien n’est conservé sur ce volume : un lien ou un fichier, ou un dossier ouvert à tous les comptes, occupe la place de son cache.</translation>
    </message>
    <message id="CacheNotOwned">
        <source>Nothing is kept on this volume: another account&apos;s folder stands where your cache should be.</source>
        <translation>Rien n’est conservé sur ce volume : le dossier d’un autre compte occupe la place de votre cache.</translation>
    </message>
    <message id="CacheOtherDevice">
        <source>Nothing is kept on this volume: another volume is mounted where its cache should be.</source>
        <translation>Rien n’est conservé sur ce volume : un autre volume est monté à la place de son cache.</translation>
    </message>
    <message id="CacheFailed">
        <source>Nothing is kept on this volume: %1.</source>
        <translation>Rien n’est conservé sur ce volume : %1.</translation>
    </message>
    <message id="VolumeKeepsNothing">
        <source>%1: %2</source>
        <translation>%1 : %2</translation>
    </message>
    <message id="IncompleteFilesAndBytes" numerus="yes">
        <source>Kept in part: %n file(s) and %1 missing</source>
        <translation>
            <numerusform>Conservé en partie : %n fichier et %1 manquent</numerusform>
            <numerusform>Conservé en partie : %n fichiers et %1 manquent</numerusform>
        </translation>
    </message>
    <message id="IncompleteFiles" numerus="yes">
        <source>Kept in part: %n file(s) missing</source>
        <translation>
            <numerusform>Conservé en partie : %n fichier manque</numerusform>
            <numerusform>Conservé en partie : %n fichiers manquent</numerusform>
        </translation>
    </message>
    <message id="IncompleteBytes">
        <source>Kept in part: %1 missing</source>
        <translation>Conservé en partie : %1 manquent</translation>
    </message>
    <message id="IncompleteUnknown">
        <source>Kept in part: some of it could not be saved</source>
        <translation>Conservé en partie : une partie n’a pas pu être sauvée</translation>
    </message>
    <message id="LossesSince" numerus="yes">
        <source>%n item(s) could not be kept since %1</source>
        <translation>
            <numerusform>%n élément n’a pas pu être conservé depuis le %1</numerusform>
            <numerusform>%n éléments n’ont pas pu être conservés depuis le %1</numerusform>
        </translation>
    </message>
    <message id="LossesShow">
        <source>Show Which…</source>
        <translation>Voir lesquels…</translation>
    </message>
    <message id="LossesTitle">
        <source>Items Not Kept</source>
        <translation>Éléments non conservés</translation>
    </message>
    <message id="LossesColumnTime">
        <source>Time</source>
        <translation>Heure</translation>
    </message>
    <message id="LossesColumnItem">
        <source>Item</source>
        <translation>Élément</translation>
    </message>
    <message id="LossesColumnKept">
        <source>Kept</source>
        <translation>Conservé</translation>
    </message>
    <message id="LossesColumnReason">
        <source>Reason</source>
        <translation>Raison</translation>
    </message>
    <message id="LossesMarkSeen">
        <source>Mark as Seen</source>
        <translation>Marquer comme vus</translation>
    </message>
    <message id="LossesNone">
        <source>Every item was kept.</source>
        <translation>Tous les éléments ont été conservés.</translation>
    </message>
    <message id="LossesKeptInPart">
        <source>In part</source>
        <translation>En partie</translation>
    </message>
    <message id="LossesNotKept">
        <source>No</source>
        <translation>Non</translation>
    </message>
    <message id="RestoreToItem">
        <source>Restore To…</source>
        <translation>Restaurer vers…</translation>
    </message>
    <message id="PutBackNameTaken">
        <source>An item named “%1” already exists in %2.</source>
        <translation>Un élément nommé « %1 » existe déjà dans %2.</translation>
    </message>
    <message id="PutBackNamesTaken">
        <source>%1 items already exist where the selected items were.</source>
        <translation>%1 éléments existent déjà là où se trouvaient les éléments sélectionnés.</translation>
    </message>
    <message id="PutBackNameTakenText">
        <source>Keep Both puts an item back under a numbered name; Skip leaves it in the cache.</source>
        <translation>Conserver les deux remet l’élément en place sous un nom numéroté ; Ignorer le laisse dans le cache.</translation>
    </message>
    <message id="KeepBothButton">
        <source>Keep Both</source>
        <translation>Conserver les deux</translation>
    </message>
    <message id="SkipButton">
        <source>Skip</source>
        <translation>Ignorer</translation>
    </message>
    <message id="MessageBarShow">
        <source>Show</source>
        <translation>Afficher</translation>
    </message>
    <message id="PutBackTip">
        <source>Put the selected items back where they were deleted from</source>
        <translation>Remettre les éléments sélectionnés là d’où ils ont été supprimés</translation>
    </message>
    <message id="PutBackNoOriginTip">
        <source>Where the selected items were deleted from is not known: use Restore To… instead</source>
        <translation>On ne sait pas d’où les éléments sélectionnés ont été supprimés : utilisez Restaurer vers… à la place</translation>
    </message>
    <message id="DeleteOneItemTitle">
        <source>Delete “%1” for good?</source>
        <translation>Supprimer définitivement « %1 » ?</translation>
    </message>
    <message id="DeleteItemsTitle">
        <source>Delete %1 items for good?</source>
        <translation>Supprimer définitivement %1 éléments ?</translation>
    </message>
    <message id="RestoreItemFailed">
        <source>“%1” was not restored: %2</source>
        <translation>« %1 » n’a pas été restauré : %2</translation>
    </message>
    <message id="RestoreStopped">
        <source>stopped</source>
        <translation>arrêté</translation>
    </message>
    <message id="RestorePartial">
        <source>“%1” was restored without what could not be copied: %2</source>
        <translation>« %1 » a été restauré sans ce qui n’a pas pu être copié : %2</translation>
    </message>
    <message id="PutBackNoOrigin">
        <source>“%1” was not put back: where it was deleted from is not known. Use Restore To… instead.</source>
        <translation>« %1 » n’a pas été remis en place : on ne sait pas d’où il a été supprimé. Utilisez Restaurer vers… à la place.</translation>
    </message>
    <message id="RestoreNameTaken">
        <source>1 item was not restored because its name is taken in %1: %2</source>
        <translation>1 élément n’a pas été restauré car son nom est déjà pris dans %1 : %2</translation>
    </message>
    <message id="RestoreNamesTaken">
        <source>%1 items were not restored because their names are taken in %2: %3</source>
        <translation>%1 éléments n’ont pas été restaurés car leurs noms sont déjà pris dans %2 : %3</translation>
    </message>
    <message id="PutBackDone1">
        <source>1 item put back in %1</source>
        <translation>1 élément remis en place dans %1</translation>
    </message>
    <message id="PutBackDone">
        <source>%1 items put back in %2</source>
        <translation>%1 éléments remis en place dans %2</translation>
    </message>
    <message id="PutBackDoneMany">
        <source>%1 items put back where they were</source>
        <translation>%1 éléments remis à leur place</translation>
    </message>
    <message id="RestoreDone1">
        <source>1 item restored to %1</source>
        <translation>1 élément restauré dans %1</translation>
    </message>
    <message id="RestoreDone">
        <source>%1 items restored to %2</source>
        <translation>%1 éléments restaurés dans %2</translation>
    </message>
    <message id="ColumnOriginalLocation">
        <source>Original Location</source>
        <translation>Emplacement d’origine</translation>
    </message>
    <message id="PutBackItem">
        <source>Put Back</source>
        <translation>Remettre en place</translation>
    </message>
    <message id="CommandRefresh">
        <source>&amp;Refresh</source>
        <translation>&amp;Actualiser</translation>
    </message>
    <message id="CommandFind">
        <source>&amp;Find</source>
        <translation>&amp;Rechercher</translation>
    </message>
    <message id="MessageBarDismiss">
        <source>Dismiss</source>
        <translation>Fermer</translation>
    </message>
    <message id="PreferencesExcludeNamePlaceholder">
        <source>Names separated by “;”, e.g. .DS_Store;Thumbs.db</source>
        <translation>Noms séparés par « ; », p. ex. .DS_Store;Thumbs.db</translation>
    </message>
    <message id="PreferencesExcludeExtensionsPlaceholder">
        <source>Extensions separated by “;”, e.g. tmp;part</source>
        <translation>Extensions séparées par « ; », p. ex. tmp;part</translation>
    </message>
    <message id="RestoreToTitle">
        <source>Restore To</source>
        <translation>Restaurer vers</translation>
    </message>
    <message id="KeepLibraryMissing">
        <source>The part of Salvora 3 that keeps them is not installed.</source>
        <translation>La partie de Salvora 3 qui les conserve n’est pas installée.</translation>
    </message>
    <message id="KeepSessionHasIt">
        <source>This session keeps them.</source>
        <translation>Cette session les conserve.</translation>
    </message>
    <message id="KeepFromNextLogin">
        <source>Takes effect at your next login: this session does not keep them yet.</source>
        <translation>Prend effet à votre prochaine connexion : cette session ne les conserve pas encore.</translation>
    </message>
    <message id="KeepStopsAtNextLogin">
        <source>Stops at your next login: this session still keeps them.</source>
        <translation>Cesse à votre prochaine connexion : cette session les conserve encore.</translation>
    </message>
    <message id="SpaceGuardRemovedDays">
        <source>Oldest days were removed to keep %1 free on %2.</source>
        <translation>Les jours les plus anciens ont été supprimés pour garder %1 libres sur %2.</translation>
    </message>
    <message id="PreferencesKeepFree">
        <source>Space kept free on protected volumes:</source>
        <translation>Espace gardé libre sur les volumes protégés :</translation>
    </message>
    <message id="PreferencesKeepFreeAtMost">
        <source>but at most</source>
        <translation>mais au plus</translation>
    </message>
    <message id="PreferencesKeepFreeTip">
        <source>When a protected volume has less free space, the oldest days of its cache are removed (never today&apos;s).</source>
        <translation>Quand un volume protégé a moins d’espace libre, les jours les plus anciens de son cache sont supprimés (jamais celui d’aujourd’hui).</translation>
    </message>
    <message id="PreferencesKeepPermanentDeletions">
        <source>Also keep files deleted permanently (rm, Shift+Delete)</source>
        <translation>Conserver aussi les fichiers supprimés définitivement (rm, Maj+Suppr)</translation>
    </message>
</context>
</TS>
