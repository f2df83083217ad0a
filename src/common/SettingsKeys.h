#pragma once

// The one list of keys of the shared settings domain. Every reader and writer names keys from here.
namespace SettingsKeys {
inline constexpr char PrefsRemoveFromCache[] = "PrefsRemoveFromCache";
inline constexpr char PrefsProtectionEnabled[] = "PrefsProtectionEnabled";
inline constexpr char PrefsLaunchMenu[] = "PrefsLaunchMenu";
inline constexpr char PrefsExcludeName[] = "PrefsExcludeName";
inline constexpr char PrefsExcludeExtension[] = "PrefsExcludeExtension";
inline constexpr char PrefsProtectedDisks[] = "PrefsProtectedDisks";
inline constexpr char ProtectedVolumesData[] = "ProtectedVolumesData";
// The free space the agent keeps on a protected volume by removing the oldest days: this share
// of the volume (percent), but never more than this many bytes.
inline constexpr char PrefsKeepFreePercent[] = "PrefsKeepFreePercent";
inline constexpr char PrefsKeepFreeBytes[] = "PrefsKeepFreeBytes";
inline constexpr char FirstUse[] = "FirstUse";
inline constexpr char version[] = "version";

inline constexpr const char *all[] = {PrefsRemoveFromCache,
                                      PrefsProtectionEnabled,
                                      PrefsLaunchMenu,
                                      PrefsExcludeName,
                                      PrefsExcludeExtension,
                                      PrefsProtectedDisks,
                                      ProtectedVolumesData,
                                      FirstUse,
                                      version,
                                      PrefsKeepFreePercent,
                                      PrefsKeepFreeBytes};

// Values written on a first launch.
inline constexpr long long kFirstLaunchRemoveFromCache = 14;
inline constexpr long long kFirstLaunchProtectionEnabled = 1;
inline constexpr long long kFirstLaunchLaunchMenu = 1;
} // namespace SettingsKeys
