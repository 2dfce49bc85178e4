#include "platform/WindowBroker.h"

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <mutex>
#include <thread>
#include <unordered_map>
#include <vector>

#include "platform/MessageQueue.h"
#include "platform/Shortcuts.h"
#include "platform/SpecialFolders.h"
#include "platform/WideText.h"
#include "platform/WinError.h"
#include "platform/WinFormat.h"
#include "platform/Window.h"

namespace platform {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::uint32_t kMagic = 0x574B4E56;  // "VNKW"
constexpr std::uint32_t kMaxPayload = 64u << 20;
constexpr std::size_t kMaxEncodedClass = 150;
// How long a connection may take to deliver its request.
constexpr int kRequestTimeoutSeconds = 2;
// How often a waiting sender looks at its own queue.
constexpr int kServeSliceMilliseconds = 10;

enum RequestKind : std::uint32_t { kQuery = 1, kSend = 2, kPost = 3 };

struct RequestHeader {
    std::uint32_t magic;
    std::uint32_t kind;
    std::uint64_t target;
    std::uint32_t message;
    std::uint32_t payloadSize;
    std::uint64_t wParam;
    std::int64_t lParam;
    std::uint64_t dwData;
};

struct ReplyHeader {
    std::uint32_t magic;
    std::uint32_t status;  // a Windows error code, 0 on success
    std::int64_t result;
    std::uint32_t processId;
    std::uint32_t threadId;
    std::uint32_t classSize;  // UTF-8 bytes following the header (queries)
    std::uint32_t titleSize;
};

// A descriptor closed when it goes out of scope.
class Descriptor {
public:
    explicit Descriptor(int fd = -1) : fd_(fd) {}
    ~Descriptor() { Reset(); }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;
    int Get() const { return fd_; }
    int Release() { return std::exchange(fd_, -1); }
    void Reset(int fd) {
        Reset();
        fd_ = fd;
    }
    void Reset() {
        if (fd_ >= 0) ::close(fd_);
        fd_ = -1;
    }

private:
    int fd_;
};

bool WriteAll(int fd, const void *data, std::size_t size) {
    const auto *bytes = static_cast<const char *>(data);
    while (size > 0) {
        ssize_t written = ::send(fd, bytes, size, MSG_NOSIGNAL);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return false;
        bytes += written;
        size -= static_cast<std::size_t>(written);
    }
    return true;
}

bool ReadAll(int fd, void *data, std::size_t size) {
    auto *bytes = static_cast<char *>(data);
    while (size > 0) {
        ssize_t got = ::recv(fd, bytes, size, 0);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return false;
        bytes += got;
        size -= static_cast<std::size_t>(got);
    }
    return true;
}

// Messages whose parameters are plain numbers, so they mean the same in the
// receiving process.
bool TravelsByValue(UINT message) {
    return message == WM_NULL || message == WM_CLOSE || message == WM_QUERYENDSESSION ||
           message == WM_ENDSESSION || message >= WM_USER;
}

bool CanTravel(UINT message) { return message == WM_COPYDATA || TravelsByValue(message); }

// ------------------------------------------------------------- socket names

std::string EncodeClass(const std::wstring &className) {
    std::string encoded;
    for (char c : EncodeUrlPath(ToLower(className))) {
        encoded += c == '/' ? std::string("%2F") : std::string(1, c);
    }
    if (encoded.size() > kMaxEncodedClass) {
        std::size_t hash = std::hash<std::string>{}(encoded);
        encoded = encoded.substr(0, kMaxEncodedClass - 17) + "~" +
                  ToUtf8(FormatW(L"%016I64x", static_cast<ULONGLONG>(hash)));
    }
    return encoded;
}

struct SocketName {
    std::string encodedClass;
    DWORD processId = 0;
    std::uint64_t handle = 0;
};

// "<class>.<pid>.<handle in hex>"
bool ParseSocketName(const std::string &name, SocketName &parsed) {
    std::size_t lastDot = name.rfind('.');
    if (lastDot == std::string::npos || lastDot == 0) return false;
    std::size_t pidDot = name.rfind('.', lastDot - 1);
    if (pidDot == std::string::npos || pidDot == 0) return false;
    char *end = nullptr;
    std::string pid = name.substr(pidDot + 1, lastDot - pidDot - 1);
    std::string handle = name.substr(lastDot + 1);
    if (pid.empty() || handle.empty()) return false;
    parsed.processId = static_cast<DWORD>(std::strtoul(pid.c_str(), &end, 10));
    if (*end) return false;
    parsed.handle = std::strtoull(handle.c_str(), &end, 16);
    if (*end) return false;
    parsed.encodedClass = name.substr(0, pidDot);
    return true;
}

std::string WindowsFolder(bool create) {
    std::wstring runtime = UserRuntimeFolder();
    if (runtime.empty()) return {};
    std::wstring folder = runtime + L"/windows";
    if (create && !MakePrivateFolder(folder)) return {};
    return ToUtf8(folder);
}

// A socket address for a path. A path too long for sun_path is reached
// through the folder's descriptor under /proc/self/fd.
class SocketAddress {
public:
    explicit SocketAddress(const std::string &path) {
        std::memset(&address_, 0, sizeof(address_));
        address_.sun_family = AF_UNIX;
        std::string usable = path;
        if (path.size() >= sizeof(address_.sun_path)) {
            std::size_t slash = path.rfind('/');
            folder_.Reset(::open(path.substr(0, slash).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
            usable = "/proc/self/fd/" + std::to_string(folder_.Get()) + path.substr(slash);
        }
        valid_ = usable.size() < sizeof(address_.sun_path);
        if (valid_) std::memcpy(address_.sun_path, usable.c_str(), usable.size() + 1);
    }
    bool Valid() const { return valid_; }
    const sockaddr *Get() const { return reinterpret_cast<const sockaddr *>(&address_); }
    socklen_t Size() const { return sizeof(address_); }

private:
    sockaddr_un address_;
    Descriptor folder_;
    bool valid_ = false;
};

bool ProcessAlive(DWORD processId) {
    // Another user's process under a reused number cannot be ours either.
    return processId > 0 && ::kill(static_cast<pid_t>(processId), 0) == 0;
}

int Connect(const std::string &path) {
    SocketAddress address(path);
    if (!address.Valid()) {
        errno = ENAMETOOLONG;
        return -1;
    }
    Descriptor fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (fd.Get() < 0) return -1;
    while (::connect(fd.Get(), address.Get(), address.Size()) != 0) {
        if (errno != EINTR) return -1;
    }
    return fd.Release();
}

// ------------------------------------------------------------------ server

// A sent message on its way to a window of this process; answers the
// connection once, or closes it unanswered when dropped.
struct Delivery {
    Descriptor connection;
    std::vector<BYTE> payload;
    COPYDATASTRUCT copyData{};

    explicit Delivery(int fd) : connection(fd) {}
    void Answer(DWORD status, LRESULT result) {
        ReplyHeader reply{kMagic, status, result, 0, 0, 0, 0};
        WriteAll(connection.Get(), &reply, sizeof(reply));
        connection.Reset();
    }
};

struct Announcement {
    int listener;
    std::string path;
};

class Server {
public:
    static Server &Instance() {
        // Never destroyed: the thread serves until the process ends.
        static auto *server = new Server;
        return *server;
    }

    bool Add(HWND window, const std::string &path) {
        SocketAddress address(path);
        if (!address.Valid()) return false;
        Descriptor listener(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        if (listener.Get() < 0) return false;
        ::unlink(path.c_str());
        if (::bind(listener.Get(), address.Get(), address.Size()) != 0 ||
            ::listen(listener.Get(), SOMAXCONN) != 0) {
            ::unlink(path.c_str());
            return false;
        }
        std::lock_guard guard(lock_);
        if (!started_ && !Start()) {
            ::unlink(path.c_str());
            return false;
        }
        announced_[window] = Announcement{listener.Release(), path};
        Wake();
        return true;
    }

    void Remove(HWND window) {
        std::lock_guard guard(lock_);
        auto found = announced_.find(window);
        if (found == announced_.end()) return;
        ::unlink(found->second.path.c_str());
        closing_.push_back(found->second.listener);
        announced_.erase(found);
        Wake();
    }

    // At exit: the sockets of windows still standing go.
    void UnlinkAll() {
        std::lock_guard guard(lock_);
        for (const auto &[window, announcement] : announced_) ::unlink(announcement.path.c_str());
    }

private:
    bool Start() {
        wake_ = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
        if (wake_ < 0) return false;
        std::thread([this] { Run(); }).detach();
        std::atexit([] { Instance().UnlinkAll(); });
        started_ = true;
        return true;
    }

    void Wake() {
        std::uint64_t one = 1;
        [[maybe_unused]] ssize_t written = ::write(wake_, &one, sizeof(one));
    }

    void Run() {
        for (;;) {
            std::vector<pollfd> polled{{wake_, POLLIN, 0}};
            std::vector<HWND> windows{nullptr};
            {
                std::lock_guard guard(lock_);
                for (int fd : closing_) ::close(fd);
                closing_.clear();
                for (const auto &[window, announcement] : announced_) {
                    polled.push_back({announcement.listener, POLLIN, 0});
                    windows.push_back(window);
                }
            }
            if (::poll(polled.data(), polled.size(), -1) < 0) continue;
            if (polled[0].revents) {
                std::uint64_t count;
                [[maybe_unused]] ssize_t got = ::read(wake_, &count, sizeof(count));
            }
            for (std::size_t i = 1; i < polled.size(); ++i) {
                if (!(polled[i].revents & POLLIN)) continue;
                int connection = ::accept4(polled[i].fd, nullptr, nullptr, SOCK_CLOEXEC);
                if (connection >= 0) Serve(connection, windows[i]);
            }
        }
    }

    static bool FromSameUser(int connection) {
        ucred credentials{};
        socklen_t size = sizeof(credentials);
        return ::getsockopt(connection, SOL_SOCKET, SO_PEERCRED, &credentials, &size) == 0 &&
               credentials.uid == ::getuid();
    }

    static void Serve(int fd, HWND window) {
        auto delivery = std::make_shared<Delivery>(fd);
        timeval timeout{kRequestTimeoutSeconds, 0};
        ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof(timeout));
        RequestHeader request{};
        if (!FromSameUser(fd) || !ReadAll(fd, &request, sizeof(request)) ||
            request.magic != kMagic || request.payloadSize > kMaxPayload) {
            return;
        }
        delivery->payload.resize(request.payloadSize);
        if (!ReadAll(fd, delivery->payload.data(), request.payloadSize)) return;
        std::shared_ptr<Window> object = FindWindowObject(window);
        if (!object || reinterpret_cast<std::uint64_t>(window) != request.target) {
            delivery->Answer(ERROR_INVALID_WINDOW_HANDLE, 0);
            return;
        }
        switch (request.kind) {
            case kQuery:
                AnswerQuery(*delivery, *object);
                return;
            case kPost:
                if (TravelsByValue(request.message)) {
                    PostMessageW(window, request.message, request.wParam,
                                 static_cast<LPARAM>(request.lParam));
                }
                return;
            case kSend:
                Deliver(delivery, *object, request);
                return;
            default:
                delivery->Answer(ERROR_INVALID_PARAMETER, 0);
        }
    }

    static void AnswerQuery(Delivery &delivery, const Window &window) {
        std::string className = ToUtf8(window.className);
        std::string title;
        {
            std::lock_guard guard(WindowLock());
            title = ToUtf8(window.text);
        }
        ReplyHeader reply{kMagic,
                          0,
                          0,
                          static_cast<std::uint32_t>(::getpid()),
                          window.threadId,
                          static_cast<std::uint32_t>(className.size()),
                          static_cast<std::uint32_t>(title.size())};
        int fd = delivery.connection.Get();
        if (WriteAll(fd, &reply, sizeof(reply)) &&
            WriteAll(fd, className.data(), className.size())) {
            WriteAll(fd, title.data(), title.size());
        }
    }

    // Queues the message to the window's thread; the answer goes back from
    // there once the window procedure has returned.
    static void Deliver(const std::shared_ptr<Delivery> &delivery, const Window &window,
                        const RequestHeader &request) {
        if (!CanTravel(request.message)) {
            delivery->Answer(ERROR_ACCESS_DENIED, 0);
            return;
        }
        auto sent = std::make_shared<SentMessage>();
        sent->window = window.handle;
        sent->message = request.message;
        sent->wParam = request.wParam;
        sent->lParam = static_cast<LPARAM>(request.lParam);
        if (request.message == WM_COPYDATA) {
            delivery->copyData.dwData = request.dwData;
            delivery->copyData.cbData = request.payloadSize;
            delivery->copyData.lpData =
                delivery->payload.empty() ? nullptr : delivery->payload.data();
            sent->lParam = reinterpret_cast<LPARAM>(&delivery->copyData);
        }
        sent->reply = [delivery](LRESULT result) { delivery->Answer(0, result); };
        if (!window.queue->Send(sent)) delivery->Answer(ERROR_INVALID_WINDOW_HANDLE, 0);
    }

    std::mutex lock_;
    std::unordered_map<HWND, Announcement> announced_;
    std::vector<int> closing_;
    int wake_ = -1;
    bool started_ = false;
};

// ------------------------------------------------------------------ client

// Waits for the answer on `fd`, serving what other threads send to the
// calling thread meanwhile, so a receiver that sends back does not
// deadlock.
bool AwaitReply(int fd, DWORD milliseconds, ReplyHeader &reply) {
    const bool finite = milliseconds != INFINITE;
    const auto deadline = Clock::now() + std::chrono::milliseconds(finite ? milliseconds : 0);
    std::shared_ptr<MessageQueue> queue = CurrentQueue();
    for (;;) {
        pollfd polled{fd, POLLIN, 0};
        int ready = ::poll(&polled, 1, kServeSliceMilliseconds);
        if (ready > 0) return ReadAll(fd, &reply, sizeof(reply)) && reply.magic == kMagic;
        if (ready < 0 && errno != EINTR) return false;
        queue->ServeSentMessages();
        if (finite && Clock::now() >= deadline) {
            SetLastError(ERROR_TIMEOUT);
            return false;
        }
    }
}

// Sends one request; with a reply wanted, waits for it.
// `refused` tells that nobody listens on the socket any more.
int Request(const RemoteWindow &window, RequestKind kind, UINT message, WPARAM wParam,
            LPARAM lParam, const COPYDATASTRUCT *copyData, bool *refused = nullptr) {
    Descriptor fd(Connect(ToUtf8(window.socketPath)));
    if (refused) *refused = fd.Get() < 0 && errno == ECONNREFUSED;
    if (fd.Get() < 0) {
        SetLastError(ERROR_INVALID_WINDOW_HANDLE);
        return -1;
    }
    RequestHeader request{
        kMagic, kind, window.handle, message, 0, wParam, static_cast<std::int64_t>(lParam), 0};
    const void *payload = nullptr;
    if (copyData) {
        request.lParam = 0;
        request.dwData = copyData->dwData;
        request.payloadSize = copyData->lpData ? copyData->cbData : 0;
        payload = copyData->lpData;
    }
    if (!WriteAll(fd.Get(), &request, sizeof(request)) ||
        (request.payloadSize && !WriteAll(fd.Get(), payload, request.payloadSize))) {
        SetLastError(ERROR_INVALID_WINDOW_HANDLE);
        return -1;
    }
    return fd.Release();
}

bool ReadText(int fd, std::uint32_t size, std::wstring &text) {
    if (size > kMaxPayload) return false;
    std::string bytes(size, '\0');
    if (!ReadAll(fd, bytes.data(), size)) return false;
    text = FromUtf8(bytes);
    return true;
}

struct QueryAnswer {
    DWORD processId = 0;
    DWORD threadId = 0;
    std::wstring className;
    std::wstring title;
};

bool Query(const RemoteWindow &window, QueryAnswer &answer, bool *refused = nullptr) {
    Descriptor fd(Request(window, kQuery, 0, 0, 0, nullptr, refused));
    if (fd.Get() < 0) return false;
    ReplyHeader reply{};
    if (!AwaitReply(fd.Get(), kRequestTimeoutSeconds * 1000, reply) || reply.status != 0) {
        return false;
    }
    answer.processId = reply.processId;
    answer.threadId = reply.threadId;
    return ReadText(fd.Get(), reply.classSize, answer.className) &&
           ReadText(fd.Get(), reply.titleSize, answer.title);
}

struct Candidate {
    std::string path;
    SocketName name;
    std::int64_t modified;
};

// The announced windows of other processes of a class (any for null),
// newest first. Sockets of processes that are gone are removed.
std::vector<Candidate> Candidates(const wchar_t *className) {
    std::vector<Candidate> candidates;
    std::string folder = WindowsFolder(false);
    if (folder.empty()) return candidates;
    DIR *directory = ::opendir(folder.c_str());
    if (!directory) return candidates;
    const std::string wanted = className ? EncodeClass(className) : std::string();
    const auto self = static_cast<DWORD>(::getpid());
    while (dirent *entry = ::readdir(directory)) {
        SocketName name;
        if (!ParseSocketName(entry->d_name, name)) continue;
        if (className && name.encodedClass != wanted) continue;
        if (name.processId == self) continue;
        std::string path = folder + "/" + entry->d_name;
        struct stat info {};
        if (::lstat(path.c_str(), &info) != 0 || !S_ISSOCK(info.st_mode)) continue;
        if (!ProcessAlive(name.processId)) {
            ::unlink(path.c_str());
            continue;
        }
        candidates.push_back(Candidate{
            path, name,
            static_cast<std::int64_t>(info.st_mtim.tv_sec) * 1000000000 + info.st_mtim.tv_nsec});
    }
    ::closedir(directory);
    std::sort(candidates.begin(), candidates.end(),
              [](const Candidate &a, const Candidate &b) { return a.modified > b.modified; });
    return candidates;
}

}  // namespace

WindowBroker &WindowBroker::Instance() {
    static WindowBroker broker;
    return broker;
}

bool WindowBroker::Announce(HWND window, const std::wstring &className) {
    std::string folder = WindowsFolder(true);
    if (folder.empty()) return false;
    std::string path =
        folder + "/" + EncodeClass(className) + "." + std::to_string(::getpid()) + "." +
        ToUtf8(FormatW(L"%I64x", static_cast<ULONGLONG>(reinterpret_cast<std::uintptr_t>(window))));
    return Server::Instance().Add(window, path);
}

void WindowBroker::Withdraw(HWND window) { Server::Instance().Remove(window); }

HWND WindowBroker::Find(const wchar_t *className, const wchar_t *title) {
    for (const Candidate &candidate : Candidates(className)) {
        auto remote = std::make_shared<RemoteWindow>();
        remote->socketPath = FromUtf8(candidate.path);
        remote->processId = candidate.name.processId;
        remote->handle = candidate.name.handle;
        QueryAnswer answer;
        bool refused = false;
        if (!Query(*remote, answer, &refused)) {
            // Nobody listens: the socket outlived its window.
            if (refused) ::unlink(candidate.path.c_str());
            continue;
        }
        if (className && !EqualsNoCase(answer.className, className)) continue;
        if (title && !EqualsNoCase(answer.title, title)) continue;
        remote->className = answer.className;
        remote->threadId = answer.threadId;
        return ProxyWindow(std::move(remote));
    }
    return nullptr;
}

bool WindowBroker::Send(const RemoteWindow &window, UINT message, WPARAM wParam, LPARAM lParam,
                        DWORD milliseconds, LRESULT &result) {
    result = 0;
    if (!CanTravel(message)) {
        SetLastError(ERROR_ACCESS_DENIED);
        return false;
    }
    const auto *copyData =
        message == WM_COPYDATA ? reinterpret_cast<const COPYDATASTRUCT *>(lParam) : nullptr;
    COPYDATASTRUCT empty{};
    if (message == WM_COPYDATA && !copyData) copyData = &empty;
    Descriptor fd(Request(window, kSend, message, wParam, lParam, copyData));
    if (fd.Get() < 0) return false;
    ReplyHeader reply{};
    if (!AwaitReply(fd.Get(), milliseconds, reply)) {
        if (GetLastError() != ERROR_TIMEOUT) SetLastError(ERROR_INVALID_WINDOW_HANDLE);
        return false;
    }
    if (reply.status != 0) {
        SetLastError(reply.status);
        return false;
    }
    result = static_cast<LRESULT>(reply.result);
    return true;
}

bool WindowBroker::Post(const RemoteWindow &window, UINT message, WPARAM wParam, LPARAM lParam) {
    if (!TravelsByValue(message)) {
        SetLastError(message == WM_COPYDATA ? ERROR_MESSAGE_SYNC_ONLY : ERROR_ACCESS_DENIED);
        return false;
    }
    Descriptor fd(Request(window, kPost, message, wParam, lParam, nullptr));
    return fd.Get() >= 0;
}

bool WindowBroker::QueryTitle(const RemoteWindow &window, std::wstring &title) {
    QueryAnswer answer;
    if (!Query(window, answer)) return false;
    title = answer.title;
    return true;
}

bool WindowBroker::IsAlive(const RemoteWindow &window) {
    struct stat info {};
    return ProcessAlive(window.processId) && ::lstat(ToUtf8(window.socketPath).c_str(), &info) == 0;
}

}  // namespace platform
