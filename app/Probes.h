// Where the three things Final Cut Pro needs lie, and whether each is in place. Read-only: nothing here changes the
// disk or the application database, and nothing is cached, so every call looks again.
#pragma once

#include <optional>
#include <string>

namespace orvistelle::shell {

inline constexpr char kPluginBundleName[] = "OrvistelleXPC.pluginkit";
// Under the user's videos folder; an earlier version installed it under "Movies" in the home directory.
inline constexpr char kInstalledTemplate[] = "Motion Templates.localized/Effects.localized/Orvistelle.localized";
inline constexpr char kEarlierVideosFolder[] = "Movies";
inline constexpr char kBundledTemplate[] = "MotionTemplates/Effects/Orvistelle.localized";
inline constexpr char kDevelopmentTemplate[] = "templates/Effects/Orvistelle.localized";
inline constexpr char kFallbackVersion[] = "0.1.0";

// The bundle's CFBundleShortVersionString, or "0.1.0" when it has none.
std::string BundleVersion();

// The plug-in bundle inside the built-in PlugIns folder; nothing when the bundle has no such folder.
std::optional<std::string> XpcPluginPath();
// Under the user's videos folder (platform::VideosFolder); never empty, need not exist.
std::string MotionTemplatePath();
// The first template folder that exists among: the resources folder's, the plug-in bundle's, and a "templates"
// folder in the executable's folder or one of its seven nearest ancestors. When none exists, the first of those
// candidates (so that a message can still name a path), or "" when there is no candidate at all.
std::string BundledTemplatePath();

// Whether the application database lists this very bundle under its identifier, symbolic links resolved on both
// sides; another copy of the application does not count.
bool IsHostRegisteredForThisApp();
bool HasXPCPlugin();
bool HasMotionTemplate();
bool HasBundledTemplate();

// Exists and is a folder, following symbolic links: a plain file of the same name counts as absent.
bool IsDirectory(const std::string& path);

struct Probes {
  bool host = false;     // IsHostRegisteredForThisApp
  bool service = false;  // HasXPCPlugin
  bool templ = false;    // HasMotionTemplate
  bool AllReady() const { return host && service && templ; }
};

Probes ProbeComponents();

}  // namespace orvistelle::shell
