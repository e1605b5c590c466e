// SPDX-License-Identifier: MIT
// The hook of the platform double, and the one that lets a test in another process answer.
//
// A call is one packet, its fields parted by zero bytes, with one end of a socket pair: the test
// answers on it with "RESULT TEXT\n", or closes it to let the call go on. Packets of all threads
// go through one socket, so the test sees them in their order. Log lines carry no socket, unless
// they contain a text of VORNA_DOUBLE_ASK (parted by '|'). The answer "spawn ARGUMENT…" makes the
// call wait for a child process with that command line, as a compile waits for its compiler: it
// writes its pid on the socket and ends when it reads a line.
#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <sstream>

#include "base/unique_fd.h"
#include "platform/native_image.h"
#include "platform_double.h"

namespace platform_double {
namespace {

struct HookSlot {
  std::mutex mutex;
  std::shared_ptr<const Hook> hook;
};

// Never destroyed: threads of the daemon may still log while the process ends.
HookSlot& Slot() {
  static HookSlot* slot = [] {
    auto* made = new HookSlot;
    if (const char* path = getenv("VORNA_DOUBLE_SOCKET"))
      made->hook = std::make_shared<const Hook>(SocketHook(path));
    return made;
  }();
  return *slot;
}

std::string ReadLine(int fd) {
  std::string line;
  for (char c; TEMP_FAILURE_RETRY(read(fd, &c, 1)) == 1 && c != '\n';) line += c;
  return line;
}

void Send(int socket, const std::string& packet, int reply_fd) {
  iovec data{const_cast<char*>(packet.data()), packet.size()};
  alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
  msghdr message{};
  message.msg_iov = &data;
  message.msg_iovlen = 1;
  if (reply_fd >= 0) {
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    cmsghdr* header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_RIGHTS;
    header->cmsg_len = CMSG_LEN(sizeof(int));
    memcpy(CMSG_DATA(header), &reply_fd, sizeof reply_fd);
  }
  (void)TEMP_FAILURE_RETRY(sendmsg(socket, &message, MSG_NOSIGNAL));
}

// The shell waits in the name of the compiler: it is called by another name and has the further
// words among its arguments.
int RunCompiler(const std::string& command_line, int channel) {
  std::vector<std::string> words;
  std::istringstream stream(command_line);
  for (std::string word; stream >> word;) words.push_back(word);
  if (words.empty()) return NI_ERROR_INVALID_ARGUMENT;
  words.insert(words.begin() + 1, {"-c", "echo $$; read line", "sh"});
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);

  const pid_t parent = getpid();
  const pid_t child = fork();
  if (child == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) _exit(1);
    dup2(channel, STDIN_FILENO);
    dup2(channel, STDOUT_FILENO);
    execv("/bin/sh", argv.data());
    _exit(127);
  }
  int status = 0;
  if (child < 0 || TEMP_FAILURE_RETRY(waitpid(child, &status, 0)) != child) return NI_ERROR_SYSTEM;
  return WIFSIGNALED(status) ? NI_ERROR_COMPILER_KILLED : 0;
}

bool IsAsked(const Call& call) {
  if (call.function != "log_print") return true;
  const char* patterns = getenv("VORNA_DOUBLE_ASK");
  std::istringstream stream(patterns ? patterns : "");
  for (std::string pattern; std::getline(stream, pattern, '|');)
    if (call.arguments.back().find(pattern) != std::string::npos) return true;
  return false;
}

}  // namespace

void SetHook(Hook hook) {
  auto shared = hook ? std::make_shared<const Hook>(std::move(hook)) : nullptr;
  std::lock_guard lock(Slot().mutex);
  Slot().hook.swap(shared);
}

Answer Ask(Call call) {
  std::shared_ptr<const Hook> hook;
  {
    std::lock_guard lock(Slot().mutex);
    hook = Slot().hook;
  }
  if (hook) return (*hook)(call);
  if (call.function == "log_print") {
    const char* letter = call.arguments[0] == "3"   ? "D"
                         : call.arguments[0] == "4" ? "I"
                         : call.arguments[0] == "5" ? "W"
                                                    : "E";
    const std::string line = letter + ("/" + call.arguments[1]) + ": " + call.arguments[2] + "\n";
    (void)!write(STDERR_FILENO, line.data(), line.size());
  }
  return {};
}

Hook SocketHook(const std::string& socket_path) {
  auto socket =
      std::make_shared<host::UniqueFd>(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  socket_path.copy(address.sun_path, sizeof address.sun_path - 1);
  // A log line may carry a package id of more than a hundred kilobytes.
  const int buffer = 1 << 20;
  setsockopt(socket->get(), SOL_SOCKET, SO_SNDBUFFORCE, &buffer, sizeof buffer);
  if (connect(socket->get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) return {};
  return [socket](const Call& call) -> Answer {
    std::string packet = call.function;
    for (const std::string& argument : call.arguments) packet += '\0' + argument;
    if (!IsAsked(call)) {
      Send(socket->get(), packet, -1);
      return {};
    }
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) return {};
    host::UniqueFd channel(ends[0]), theirs(ends[1]);
    Send(socket->get(), packet, theirs.get());
    theirs.Reset();
    const std::string reply = ReadLine(channel.get());
    if (reply.rfind("spawn ", 0) == 0) return {RunCompiler(reply.substr(6), channel.get()), {}};
    const size_t blank = reply.find(' ');
    return {atoi(reply.c_str()), blank == std::string::npos ? "" : reply.substr(blank + 1)};
  };
}

}  // namespace platform_double
