#pragma once

// The name of the cache folder on every volume (see cache/CacheFolder.h for where it lies). The
// privileged helper creates it, the core and the preload library find it: one spelling for all.
inline constexpr char kCacheFolderName[] = ".Salvora3Cache";
