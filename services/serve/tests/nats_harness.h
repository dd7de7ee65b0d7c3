// A private nats-server for the end-to-end tests: a free loopback port, its own store in a
// scratch folder, JetStream on and the frames subject mapping for a given partition count; and
// child processes (workers, the tool) started and killed by the test. Tests skip when the
// server binary is not installed.
#pragma once

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "formats/frame_file.h"

namespace servetest {

inline std::string findNatsServer() {
    if (const char* env = std::getenv("RTM_NATS_SERVER")) return env;
    for (const char* p : {"/usr/sbin/nats-server", "/usr/bin/nats-server", "/usr/local/bin/nats-server"})
        if (access(p, X_OK) == 0) return p;
    return "";
}

inline int freeLoopbackPort() {
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    a.sin_port = 0;
    socklen_t len = sizeof a;
    int port = 0;
    if (bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) == 0 &&
        getsockname(fd, reinterpret_cast<sockaddr*>(&a), &len) == 0)
        port = ntohs(a.sin_port);
    close(fd);
    return port;
}

inline std::string readText(const std::filesystem::path& p) {
    std::ifstream f(p);
    std::ostringstream s;
    s << f.rdbuf();
    return s.str();
}

// A frame file for `rtmonitor publish`.
inline bool writeFrameFile(const std::string& path, const std::vector<ParamsIn>& frames) {
    std::FILE* f = std::fopen(path.c_str(), "wb");
    if (f == nullptr) return false;
    const bool ok = rtmfmt::writeFrames(f, frames);
    return std::fclose(f) == 0 && ok;
}

// A child process with its standard output and error in `log`.
class Child {
public:
    Child() = default;
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;
    ~Child() { kill(SIGKILL); }

    bool start(const std::vector<std::string>& argv, const std::string& log) {
        pid_ = fork();
        if (pid_ < 0) return false;
        if (pid_ == 0) {
            const int fd = open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
            dup2(fd, 1);
            dup2(fd, 2);
            std::vector<char*> args;
            for (const auto& a : argv) args.push_back(const_cast<char*>(a.c_str()));
            args.push_back(nullptr);
            execv(args[0], args.data());
            _exit(127);
        }
        return true;
    }
    // Sends `sig` and waits for the exit; the exit status, or -1 when killed by a signal.
    int kill(int sig) {
        if (pid_ <= 0) return -1;
        ::kill(pid_, sig);
        return wait();
    }
    int wait() {
        if (pid_ <= 0) return -1;
        int st = 0;
        waitpid(pid_, &st, 0);
        pid_ = 0;
        return WIFEXITED(st) ? WEXITSTATUS(st) : -1;
    }
    bool running() {
        if (pid_ <= 0) return false;
        int st = 0;
        if (waitpid(pid_, &st, WNOHANG) == 0) return true;
        pid_ = 0;
        return false;
    }

private:
    pid_t pid_ = 0;
};

class NatsServer {
public:
    // partitions == 0: no subject mapping, as on a server set up without the guide. `extra` is
    // more configuration (a cluster block, accounts); `name` names the store folder and the log.
    NatsServer(const std::filesystem::path& dir, int partitions, const std::string& name = "",
               const std::string& extra = "", int port = 0)
        : dir_(dir), name_(name), port_(port > 0 ? port : freeLoopbackPort()) {
        const std::string suffix = name.empty() ? "" : "_" + name;
        conf_ = dir_ / ("nats" + suffix + ".conf");
        log_ = dir_ / ("server" + suffix + ".log");
        std::ofstream conf(conf_);
        if (!name.empty()) conf << "server_name: " << name << "\n";
        conf << "listen: 127.0.0.1:" << port_ << "\n"
             << "jetstream { store_dir: \"" << (dir_ / ("store" + suffix)).string() << "\" }\n";
        if (partitions > 0)
            conf << "mappings: { \"rtm.frames.*\": \"rtm.part.{{partition(" << partitions
                 << ",1)}}.{{wildcard(1)}}\" }\n";
        conf << extra;
    }
    bool start() {
        const size_t before = readyLines();
        if (!process_.start({findNatsServer(), "-c", conf_.string()}, log_.string())) return false;
        // Ready once it accepts connections and JetStream has recovered its store.
        for (int i = 0; i < 200; ++i) {
            if (readyLines() > before) return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        return false;
    }
    void stop() { process_.kill(SIGTERM); }
    void kill() { process_.kill(SIGKILL); }
    const std::string& name() const { return name_; }
    std::string url() const { return "nats://127.0.0.1:" + std::to_string(port_); }
    std::string log() const { return readText(log_); }

private:
    size_t readyLines() const {
        const std::string text = log();
        size_t n = 0;
        for (size_t p = text.find("Server is ready"); p != std::string::npos; p = text.find("Server is ready", p + 1))
            ++n;
        return n;
    }

    std::filesystem::path dir_, conf_, log_;
    std::string name_;
    int port_;
    Child process_;
};

// Three servers on loopback routed into one JetStream cluster, each with its own store.
class NatsCluster {
public:
    NatsCluster(const std::filesystem::path& dir, int partitions, const std::string& extra = "") {
        constexpr int kSize = 3;
        std::vector<int> routePorts;
        for (int i = 0; i < kSize; ++i) routePorts.push_back(freeLoopbackPort());
        std::string routes;
        for (int p : routePorts)
            routes += (routes.empty() ? "" : ", ") + ("nats-route://127.0.0.1:" + std::to_string(p));
        for (int i = 0; i < kSize; ++i) {
            const std::string cluster = "cluster { name: rtm, listen: 127.0.0.1:" + std::to_string(routePorts[i]) +
                                        ", routes: [" + routes + "] }\n";
            servers_.push_back(
                std::make_unique<NatsServer>(dir, partitions, "n" + std::to_string(i + 1), cluster + extra));
        }
    }
    bool start() {
        for (auto& s : servers_)
            if (!s->start()) return false;
        return true;
    }
    size_t size() const { return servers_.size(); }
    NatsServer& server(size_t i) { return *servers_[i]; }
    // The server named `name` (as a stream's cluster information gives it), or size().
    size_t index(const std::string& name) const {
        for (size_t i = 0; i < servers_.size(); ++i)
            if (servers_[i]->name() == name) return i;
        return servers_.size();
    }
    std::string urls() const {
        std::string u;
        for (const auto& s : servers_) u += (u.empty() ? "" : ",") + s->url();
        return u;
    }
    std::string logs() const {
        std::string l;
        for (const auto& s : servers_) l += "--- " + s->name() + "\n" + s->log();
        return l;
    }

private:
    std::vector<std::unique_ptr<NatsServer>> servers_;
};

// A scratch folder and a server per test; the folder (with every log) is kept when a test fails.
class ServerTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (findNatsServer().empty()) GTEST_SKIP() << "nats-server is not installed; skipping the worker service tests";
        char tmpl[] = "/tmp/rtm_serve_test_XXXXXX";
        ASSERT_NE(mkdtemp(tmpl), nullptr);
        dir_ = tmpl;
    }
    void TearDown() override {
        server_.reset();
        if (dir_.empty()) return;
        // RTM_SERVE_KEEP=1 keeps the logs of a passing run too.
        if (!HasFailure() && std::getenv("RTM_SERVE_KEEP") == nullptr) {
            std::error_code ec;
            std::filesystem::remove_all(dir_, ec);
        } else {
            std::printf("logs kept in %s\n", dir_.c_str());
        }
    }

    void startServer(int partitions) {
        server_ = std::make_unique<NatsServer>(dir_, partitions);
        ASSERT_TRUE(server_->start()) << server_->log();
    }
    std::string path(const std::string& name) const { return (dir_ / name).string(); }
    static std::string bin(const std::string& name) { return std::string(RTM_BINARY_DIR) + "/" + name; }

    // Runs a program to its end; its exit status (-1 when killed), output in `log`.
    int run(const std::vector<std::string>& argv, const std::string& log) {
        Child c;
        if (!c.start(argv, path(log))) return -1;
        return c.wait();
    }

    std::filesystem::path dir_;
    std::unique_ptr<NatsServer> server_;
};

}  // namespace servetest
