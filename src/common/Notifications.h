#pragma once

// Names, objects and user-info keys of the notifications that the window, the companion and the
// daemon send each other. The name says who is addressed, the object what happened.
namespace Notifications {
// Names.
inline constexpr char Salvora3Notification[] = "Salvora3Notification";         // to the window
inline constexpr char Salvora3MenuNotification[] = "Salvora3MenuNotification"; // to the companion
inline constexpr char Salvora3DaemonNotification[] = "Salvora3DaemonNotification"; // to the daemon
// Objects.
inline constexpr char Salvora3SettingsDidChange[] = "Salvora3SettingsDidChange";
inline constexpr char Salvora3GetStatus[] = "Salvora3GetStatus";
inline constexpr char Salvora3MenuMustQuit[] = "Salvora3MenuMustQuit";
inline constexpr char Salvora3DaemonMustDelete[] = "Salvora3DaemonMustDelete";
inline constexpr char Salvora3CacheModified[] = "Salvora3CacheModified";
inline constexpr char Salvora3DataMovedToCache[] = "Salvora3DataMovedToCache";
inline constexpr char Salvora3NewVersion[] = "Salvora3NewVersion";
// User-info keys. The delete list travels as an array of byte strings ("aay"): cache paths are
// bytes, and D-Bus strings must be UTF-8.
inline constexpr char Salvora3DaemonMustDeleteList[] = "Salvora3DaemonMustDeleteList";

// Where the signals live on the session bus.
inline constexpr char kObjectPath[] = "/Salvora3";
inline constexpr char kInterface[] = "org.salvora.Salvora3";
// The daemon's well-known name: whoever owns it is the session's daemon.
inline constexpr char kDaemonService[] = "org.salvora.Salvora3.Daemon";
inline constexpr char kMenuService[] = "org.salvora.Salvora3.Menu";
} // namespace Notifications
