#include "tools/voxjobd/Starter.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <optional>
#include <string_view>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "vox/drivers/net/JobChannel.h"
#include "vox/drivers/net/bonjour.h"
#include "vox/platform/FileDescriptor.h"

namespace vox {
namespace {

using Clock = std::chrono::steady_clock;

constexpr char kProgram[] = "voxjobd";
constexpr int kBetweenLooksMs = 10;
constexpr std::size_t kErrorTextLimit = 1'000;            // bytes kept of what the server says
constexpr std::chrono::milliseconds kAfterItsEnd{1'000};  // for the server that was quicker

// Knock connects to the server and leaves again, which also starts its idle time anew.
bool Knock() {
  unsigned short port = 0;
  if (bonjour_resolve(kProgram, kScannerServiceType, &port) != 0) return false;
  return static_cast<bool>(FileDescriptor(get_lpd_soc(port)));
}

// What lies in the working folder is never run.
bool IsProgram(const std::filesystem::path& path) {
  std::error_code ignored;
  return path.is_absolute() && std::filesystem::is_regular_file(path, ignored) &&
         ::access(path.c_str(), X_OK) == 0;
}

std::string FindInPath() {
  const char* path = ::secure_getenv("PATH");
  std::string folders = path != nullptr ? path : "";
  for (std::size_t begin = 0; begin < folders.size();) {
    const std::size_t end = std::min(folders.find(':', begin), folders.size());
    const std::filesystem::path folder = folders.substr(begin, end - begin);
    if (IsProgram(folder / kProgram)) return folder / kProgram;
    begin = end + 1;
  }
  return {};
}

// ---- the new process: nothing but async-signal-safe calls between fork and exec

void WriteText(const char* text) {
  [[maybe_unused]] const auto written = ::write(STDERR_FILENO, text, std::strlen(text));
}

void BecomeServer(const char* program, char* const* arguments, char* const* environment,
                  int error_pipe) {
  const int nothing = ::open("/dev/null", O_RDWR);
  ::dup2(nothing, STDIN_FILENO);
  ::dup2(nothing, STDOUT_FILENO);
  ::dup2(error_pipe, STDERR_FILENO);
  ::close_range(STDERR_FILENO + 1, ~0u, 0);
  [[maybe_unused]] const int moved = ::chdir("/");
  sigset_t none;
  ::sigemptyset(&none);
  ::sigprocmask(SIG_SETMASK, &none, nullptr);
  ::execve(program, arguments, environment);
  const char* reason = ::strerrordesc_np(errno);
  WriteText("cannot run ");
  WriteText(program);
  WriteText(": ");
  WriteText(reason != nullptr ? reason : "unknown error");
}

// ---- in this process

// The server works in another folder, so a machine root below this one is given in full.
std::vector<std::string> ServerEnvironment() {
  constexpr std::string_view kRoot = "VOX_ROOT=";
  std::vector<std::string> environment;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    std::string text = *entry;
    std::error_code error;
    if (text.starts_with(kRoot) && text.size() > kRoot.size()) {
      const auto root = std::filesystem::absolute(text.substr(kRoot.size()), error);
      if (!error) text = std::string(kRoot) + root.string();
    }
    environment.push_back(std::move(text));
  }
  return environment;
}

// As exec takes them; they are valid as long as the texts.
std::vector<char*> Pointers(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  pointers.reserve(texts.size() + 1);
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

// The child in between ends at once, so that the server is nobody's child: it leaves no zombie
// behind in a program that runs for days.
bool Launch(const std::string& program, std::vector<std::string> arguments, int error_pipe) {
  arguments.insert(arguments.begin(), {program, "--exit-when-idle"});
  std::vector<std::string> environment = ServerEnvironment();
  const std::vector<char*> argument_pointers = Pointers(arguments);
  const std::vector<char*> environment_pointers = Pointers(environment);
  const pid_t child = ::fork();
  if (child < 0) return false;
  if (child == 0) {
    ::setsid();
    const pid_t server = ::fork();
    if (server != 0) ::_exit(server < 0 ? 1 : 0);
    BecomeServer(program.c_str(), argument_pointers.data(), environment_pointers.data(),
                 error_pipe);
    ::_exit(127);
  }
  int status = 0;
  while (::waitpid(child, &status, 0) < 0) {
    if (errno != EINTR) return true;  // the host program collects its children itself
  }
  return status == 0;
}

// ---- the server that this call has started

class StartedServer {
 public:
  static std::optional<StartedServer> Start(const std::string& program,
                                            const std::vector<std::string>& arguments) {
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK) != 0) return std::nullopt;
    StartedServer server{FileDescriptor(ends[0])};
    const FileDescriptor write_end(ends[1]);
    if (!Launch(program, arguments, write_end.Get())) return std::nullopt;
    return server;
  }

  bool HasEnded() const { return ended_; }
  const std::string& LastWords() const { return text_; }

  // Watch waits for a moment and takes in what the server writes to its standard error.
  void Watch() {
    pollfd entry{ended_ ? -1 : errors_.Get(), POLLIN, 0};
    if (::poll(&entry, 1, kBetweenLooksMs) != 1) return;
    char buffer[256];
    const ssize_t got = ::read(errors_.Get(), buffer, sizeof buffer);
    if (got == 0) ended_ = true;
    if (got <= 0) return;
    const std::size_t room = kErrorTextLimit - std::min(kErrorTextLimit, text_.size());
    text_.append(buffer, std::min(room, static_cast<std::size_t>(got)));
  }

 private:
  explicit StartedServer(FileDescriptor errors) : errors_(std::move(errors)) {}

  FileDescriptor errors_;  // closed at the other end when the server ends
  std::string text_;
  bool ended_ = false;
};

JobServerPresence Failed(std::string text) {
  while (!text.empty() && text.back() == '\n') text.pop_back();
  return {.running = false, .started = false, .error = std::move(text), .forbidden = false};
}

// Nobody learns the exit status of a server in a session of its own, so that is found out again.
bool LockFileIsForbidden() {
  const std::string path = bonjour_lock_file();
  const FileDescriptor file(
      ::open(path.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY));
  if (file) return false;
  if (errno == ENOENT) {
    const std::string folder = std::filesystem::path(path).parent_path();
    if (::access(folder.c_str(), W_OK | X_OK) == 0) return false;
  }
  return errno == EACCES || errno == EPERM;
}

JobServerPresence CouldNotStart(const std::string& last_words) {
  JobServerPresence presence = Failed(last_words);
  presence.forbidden = LockFileIsForbidden();
  return presence;
}

JobServerPresence AwaitServer(StartedServer server, Clock::time_point deadline) {
  while (!Knock()) {
    const bool had_ended = server.HasEnded();
    server.Watch();
    // Another starter's server may hold the lock and not have written its port yet.
    if (server.HasEnded() && !had_ended) deadline = std::min(deadline, Clock::now() + kAfterItsEnd);
    if (Clock::now() < deadline) continue;
    if (server.HasEnded() && !server.LastWords().empty()) return CouldNotStart(server.LastWords());
    return Failed(std::string(kProgram) + " was started but cannot be reached");
  }
  return {.running = true, .started = !server.HasEnded(), .error = {}, .forbidden = false};
}

}  // namespace

std::string FindJobServerFrom(const std::filesystem::path& program) {
  const auto folder = program.parent_path();
  for (const auto& place :
       {folder, folder.parent_path() / kProgram, std::filesystem::path(VOX_INSTALL_BINDIR)}) {
    if (IsProgram(place / kProgram)) return place / kProgram;
  }
  return FindInPath();
}

std::string FindJobServer() {
  std::error_code ignored;  // without that link there is no folder to begin with
  return FindJobServerFrom(std::filesystem::read_symlink("/proc/self/exe", ignored));
}

JobServerPresence EnsureJobServer(const JobServerStarterOptions& options) {
  if (Knock()) return {.running = true, .started = false, .error = {}, .forbidden = false};
  const Clock::time_point deadline = Clock::now() + options.patience;
  const std::string program = options.program.empty() ? FindJobServer() : options.program;
  if (program.empty()) return Failed("voxjobd is not installed: network scans need it");
  auto server = StartedServer::Start(program, options.arguments);
  if (!server) return Failed("no process can be made for " + program);
  return AwaitServer(std::move(*server), deadline);
}

}  // namespace vox
