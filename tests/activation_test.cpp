// The service started by a service manager that listens for it, as systemd's socket units do.
#include "support/built.h"
#include "support/raw_client.h"
#include "support/test_system.h"
#include "support/unix_socket.h"

#include <gds_shared/product_constants.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <future>

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace test_support;

namespace {

struct descriptor {
    int fd = -1;
    explicit descriptor(int opened) : fd(opened) {}
    descriptor(const descriptor&) = delete;
    descriptor& operator=(const descriptor&) = delete;
    ~descriptor() { close(fd); }
    [[nodiscard]] bool readable(int ms) const {
        pollfd entry{fd, POLLIN, 0};
        return poll(&entry, 1, ms) == 1;
    }
};

// What systemd does with a socket unit and a service of Type=notify.
class manager {
public:
    explicit manager(const test_system& on)
        : folder(on.folder()),
          path(folder / gds_shared::service_pipe_name(gds_shared::gev_product)),
          listening(bound_socket(SOCK_SEQPACKET, path)),
          notify(bound_socket(SOCK_DGRAM, folder / "notify")) {}
    ~manager() { end(); }

    void start_service(int handed_over, const std::string& camera, int its_output = -1) {
        const std::string program = built::program("orv-gentl-gev-service");
        const std::string output = folder / "activated";
        const std::string notify_path = folder / "notify";
        child = fork();
        ASSERT_GE(child, 0);
        if (child > 0) return;
        const int file = open(output.c_str(), O_CREAT | O_WRONLY | O_TRUNC, 0600);
        dup2(its_output >= 0 ? its_output : file, STDOUT_FILENO);
        dup2(file, STDERR_FILENO);
        if (handed_over == 3)
            fcntl(3, F_SETFD, 0);
        else
            dup2(handed_over, 3);
        setenv("LISTEN_PID", std::to_string(getpid()).c_str(), 1);
        setenv("LISTEN_FDS", "1", 1);
        setenv("NOTIFY_SOCKET", notify_path.c_str(), 1);
        execl(program.c_str(), program.c_str(), "--no-networks", "--discover", camera.c_str(), nullptr);
        _exit(127);
    }
    // The exit code.
    int wait() {
        int status = 0;
        waitpid(child, &status, 0);
        child = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }
    int end() {
        if (child < 0) return 0;
        kill(child, SIGTERM);
        return wait();
    }
    [[nodiscard]] std::string told() const {
        std::array<char, 64> text{};
        if (!notify.readable(10000)) return "nothing";
        const auto size = recv(notify.fd, text.data(), text.size(), 0);
        return {text.data(), static_cast<size_t>(size)};
    }
    [[nodiscard]] std::string said() const {
        std::ifstream text{folder / "activated"};
        return {std::istreambuf_iterator<char>{text}, {}};
    }
    [[nodiscard]] ino_t inode() const {
        struct stat found {};
        return lstat(path.c_str(), &found) == 0 ? found.st_ino : 0;
    }

    const std::filesystem::path folder;
    const std::filesystem::path path;
    const descriptor listening;
    const descriptor notify;
    pid_t child = -1;
};

} // namespace

TEST(Activation, AClientWithoutAServiceGetsOneAndTheSocketOutlivesIt) {
    test_system own;
    own.start_camera({"--width", "64", "--height", "48"});
    manager systemd{own};
    const ino_t socket_file = systemd.inode();
    for (int round = 0; round < 2; ++round) {
        SCOPED_TRACE(round);
        // By hand: the library would wait for a second only.
        auto waiting = std::async(std::launch::async, [&] { const raw_client served{own.folder()}; });
        ASSERT_TRUE(systemd.listening.readable(10000)) << "it waits in the socket";
        systemd.start_service(systemd.listening.fd, own.camera_address(0));
        EXPECT_EQ(systemd.told(), "READY=1");
        EXPECT_NO_THROW(waiting.get()) << systemd.said();
        const auto grabbed = own.run_consumer({"grab", "--frames", "2", "--json", "--quiet"});
        EXPECT_EQ(grabbed.exit_code, 0) << grabbed.output << systemd.said();
        EXPECT_EQ(systemd.end(), 0) << systemd.said();
        EXPECT_EQ(systemd.told(), "STOPPING=1");
        EXPECT_EQ(systemd.inode(), socket_file);
        EXPECT_FALSE(std::filesystem::exists(systemd.path.string() + ".lock"));
    }
}

// A pipe that is full, and that nobody reads.
TEST(Activation, AnOutputThatTakesNothingKeepsNeitherTheManagerNorTheCameraWaiting) {
    test_system own;
    own.start_camera({"--width", "64", "--height", "48"});
    manager systemd{own};
    int ends[2]{};
    ASSERT_EQ(pipe2(ends, O_CLOEXEC | O_NONBLOCK), 0);
    const descriptor reading{ends[0]}, writing{ends[1]};
    const std::array<char, 4096> filling{};
    while (write(writing.fd, filling.data(), filling.size()) > 0) {
    }
    ASSERT_EQ(fcntl(writing.fd, F_SETFL, 0), 0);
    systemd.start_service(systemd.listening.fd, own.camera_address(0), writing.fd);
    EXPECT_EQ(systemd.told(), "READY=1");
    const auto holds_sessions = [&] {
        return std::ranges::any_of(std::filesystem::directory_iterator{own.folder()}, [](const auto& each) {
            return each.path().filename().string().starts_with("control-");
        });
    };
    {
        const open_camera camera;
        EXPECT_TRUE(holds_sessions());
        EXPECT_EQ(systemd.end(), 0);
    }
    EXPECT_FALSE(holds_sessions()) << "control was given back";
}

TEST(Activation, AServiceStartedByHandLeavesTheManagersSocketAlone) {
    test_system own;
    const manager systemd{own};
    const ino_t socket_file = systemd.inode();
    process second{{built::program("orv-gentl-gev-service"), "--no-networks"}, own.folder() / "second"};
    EXPECT_EQ(second.wait(), 1);
    EXPECT_EQ(systemd.inode(), socket_file);
}

TEST(Activation, OnlyTheSocketOfThisVersionIsTaken) {
    test_system own;
    manager systemd{own};
    const descriptor elsewhere{bound_socket(SOCK_SEQPACKET, own.folder() / "other")};
    const descriptor no_listener{bound_socket(SOCK_DGRAM, own.folder() / "datagrams")};
    for (const int wrong : {elsewhere.fd, no_listener.fd}) {
        systemd.start_service(wrong, "127.0.0.1");
        EXPECT_EQ(systemd.wait(), 1);
        EXPECT_NE(systemd.said().find("handed over"), std::string::npos) << systemd.said();
    }
}
