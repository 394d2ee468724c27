// The operating-system services the modules rely on, each behind a small interface.
//
// Conventions:
//  1. Every seam has one implementation per OS, chosen by CMake (platform/linux/ here), reached through
//     Seam<T>::Get(). Nothing above this folder includes an OS header for these services.
//  2. Tests replace a seam with a fake through ScopedSeam<T>. Production code overrides one only where a program
//     works on another program's behalf: the support command line points the Bundle seam at the application's bundle.
//  3. Every method may be called from any thread and never throws.
//  4. A Default() object is never destroyed: host threads and the library's own may still call it while the host
//     process exits, after static destructors have run.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orvistelle::platform {

// The platform this build runs on, as the product's servers name it: "linux" here, "macos" in a Mac build. The
// heartbeat reports it, and the update check takes the download it names.
extern const char kPlatformName[];
// The file type, dot included, of this platform's package on the download server.
extern const char kPackageExtension[];

// The running kernel as uname names it: "Linux", "6.1.0-13-amd64", "x86_64".
struct OperatingSystemNames {
  std::string name;
  std::string release;
  std::string machine;
};
// Nothing when the kernel cannot be asked.
std::optional<OperatingSystemNames> OperatingSystem();

// Wall-clock time in seconds since 1970, the unit every state file and rule is written in.
class Clock {
 public:
  virtual ~Clock() = default;
  virtual double Now() = 0;
  static Clock& Default();
};

class Home {
 public:
  virtual ~Home() = default;
  // The home directory that the user database records for the real user id; empty when there is none.
  virtual std::string FromUserDatabase() = 0;
  // The platform's usual answer ($HOME on Linux, else the user database; never empty).
  virtual std::string Directory() = 0;
  static Home& Default();
};

class Languages {
 public:
  virtual ~Languages() = default;
  // The user's preferred interface languages as tags ("zh-Hant-TW", "pt_BR"), most preferred first; may be empty.
  virtual std::vector<std::string> Preferred() = 0;
  static Languages& Default();
};

class Browser {
 public:
  virtual ~Browser() = default;
  // Hands the URL to the desktop's default browser and returns at once; failures go to the system log.
  virtual void Open(const std::string& url) = 0;
  static Browser& Default();
};

class SystemLog {
 public:
  virtual ~SystemLog() = default;
  // Writes one complete line, exactly as given.
  virtual void Write(std::string_view line) = 0;
  static SystemLog& Default();
};

// Where the running program's bundle lies. A bare executable is its own folder with no Info and no plug-ins.
struct BundleLocation {
  std::string bundlePath;          // X of "X/Contents/MacOS/exe", or the executable's folder
  std::string executablePath;      // the running executable, symbolic links resolved
  std::string resourcePath;        // Contents/Resources, or the executable's folder
  std::string builtInPlugInsPath;  // Contents/PlugIns, or empty
};

class Bundle {
 public:
  virtual ~Bundle() = default;
  virtual BundleLocation Main() = 0;
  // A string value of the main bundle's Info dictionary; nothing when absent or not a string.
  virtual std::optional<std::string> InfoString(std::string_view key) = 0;
  static Bundle& Default();
  // The bundle at the path, read as if its own executable were running.
  static std::unique_ptr<Bundle> At(const std::string& bundlePath);
};

// The desktop's database of installed applications, looked up by bundle identifier.
class AppDatabase {
 public:
  virtual ~AppDatabase() = default;
  // Registers the bundle with the database. 0 on success, a negative errno-style status on failure.
  virtual int Register(const std::string& bundlePath) = 0;
  // Runs the system's registration tool on the bundle and waits for it; 0 whenever the tool launched, whatever it
  // answered, and a negative errno-style status when it could not be started.
  virtual int RunRegistrationTool(const std::string& bundlePath) = 0;
  // The bundle paths registered under the identifier, in the database's own order.
  virtual std::vector<std::string> ApplicationsWithBundleIdentifier(const std::string& bundleIdentifier) = 0;
  // Removes what Register wrote for the bundle, and the folder that leaves empty; a registration of another bundle
  // stays. 0 when it is gone (or was never there), else a negative status.
  virtual int Unregister(const std::string& bundlePath) = 0;
  // Whether the identifier's registrations include the bundle, symbolic links resolved on both sides: a copy of the
  // app elsewhere does not count, the same bundle reached through a link does.
  bool Lists(const std::string& bundleIdentifier, const std::string& bundlePath);
  static bool SameBundle(const std::string& a, const std::string& b);
  static AppDatabase& Default();
};

template <class T>
class Seam {
 public:
  static T& Get() {
    T* fake = override_.load(std::memory_order_acquire);
    return fake != nullptr ? *fake : T::Default();
  }
  static void Override(T* fake) { override_.store(fake, std::memory_order_release); }

 private:
  static inline std::atomic<T*> override_{nullptr};
};

// Installs a fake for the lifetime of the guard. The fake must outlive every thread that may still use it.
template <class T>
class ScopedSeam {
 public:
  explicit ScopedSeam(T* fake) { Seam<T>::Override(fake); }
  ~ScopedSeam() { Seam<T>::Override(nullptr); }
  ScopedSeam(const ScopedSeam&) = delete;
  ScopedSeam& operator=(const ScopedSeam&) = delete;
};

// Writes "[Orvistelle] " and the message, escaped by EscapeLogText (platform/LogText.h), to the system log, and the
// message to the support log.
void Log(std::string_view message);

// The first preferred-language tag that a POSIX locale environment names: the first element of LANGUAGE, else
// LC_ALL, LC_MESSAGES, LANG; ".encoding" and "@modifier" dropped; "C" and "POSIX" name none.
// `getenv` is injectable so that the rule can be tested without touching the process environment.
std::optional<std::string> LanguageTagFromEnvironment(const std::function<const char*(const char*)>& getenv);

}  // namespace orvistelle::platform
