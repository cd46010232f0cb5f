#include "smart_helper/smart_helper.h"

#include <cerrno>
#include <csignal>
#include <sys/un.h>
#include <sys/wait.h>

#include "platform/raw_socket.h"
#include "platform/stock/storage/smart_reader.h"
#include "platform/stock_root.h"
#include "platform/stop_soon.h"

namespace {

/* The socket and, for each connection, a process, as systemd provides them. */
class THelper {
public:
    THelper()
    {
        g_stock_root.remove("/run/velomond");
        g_stock_root.folder("/run/velomond");
        const TFd fd = at_its_address(bind);
        EXPECT_EQ(listen(fd.get(), 16), 0);
        m_pid = fork();
        if (m_pid == 0)
            serve(fd.get());
    }
    ~THelper()
    {
        kill(m_pid, SIGKILL);
        waitpid(m_pid, nullptr, 0);
    }

    /* The answer to a client that ends in the middle of its request. */
    static std::string ask_half(std::string_view half)
    {
        const TFd fd = at_its_address(connect);
        const TRawSocket client(TFd(dup(fd.get())));
        EXPECT_TRUE(client.say(half));
        shutdown(fd.get(), SHUT_WR);
        return client.hear();
    }

private:
    static TFd at_its_address(int (*call)(int, const sockaddr *, socklen_t))
    {
        TFd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        g_stock_root.real("/run/velomond/smart.socket").copy(address.sun_path, sizeof(address.sun_path) - 1);
        EXPECT_EQ(call(fd.get(), reinterpret_cast<const sockaddr *>(&address), sizeof(address)), 0);
        return fd;
    }
    [[noreturn]] static void serve(int fd)
    {
        signal(SIGCHLD, SIG_IGN);
        for (;;) {
            const int client = accept(fd, nullptr, nullptr);
            if (fork() == 0) {
                dup2(client, STDIN_FILENO);
                dup2(client, STDOUT_FILENO);
                close(client);
                close(fd);
                const std::string answer = g_stock_root.read("/answer"); // of another helper
                char request[64];
                if (!answer.empty() && read(STDIN_FILENO, request, sizeof(request)) > 0)
                    dprintf(STDOUT_FILENO, "%s", answer.c_str());
                else if (const int result = smart_helper_serve(); result != 0)
                    dprintf(STDERR_FILENO, "failed %d\n", result);
                _exit(0);
            }
            close(client);
        }
    }

    pid_t m_pid;
};

int ask(const std::string &device, std::string *document, int timeout_s = 5, bool may_wake = false)
{
    return smart_socket_ask(device, may_wake, {timeout_s, 10000, 200}, document);
}

TEST(SmartHelper, AcceptsTheNameOfOneDevice)
{
    for (const std::string name : {"xvda", "nvme0", "nvme10n1", "mmcblk0", "wake", "a234567890123456789012345678901"}) {
        EXPECT_EQ(smart_request_parse(name + "\n").device, name);
        EXPECT_FALSE(smart_request_parse(name + "\n").may_wake);
        EXPECT_EQ(smart_request_parse("wake " + name + "\n").device, name);
        EXPECT_TRUE(smart_request_parse("wake " + name + "\n").may_wake);
    }
    for (const char *text :
         {"", "\n", "sda", "sda\n\n", "sda sdb\n", "wake \n", "wake wake sda\n", "-d\n", "../sda\n", "/dev/sda\n",
          "sda;ls\n", ".\n", "0\n", "SDA\n", "sd\xc3\xa4\n", "a2345678901234567890123456789012\n"})
        EXPECT_EQ(smart_request_parse(text).device, "") << text;
    EXPECT_EQ(smart_request_parse(std::string("sda\0\n", 5)).device, "");
}

TEST(SmartHelper, ReadsTheDevicesThatTheKernelKnowsOneAtATime)
{
    std::string document = "before";
    for (const char *path : {"/sys", "/usr/sbin/smartctl"})
        g_stock_root.remove(path);
    for (const std::string name : {"sda", "sdb", "sdc"})
        g_stock_root.write("/sys/class/block/" + name + "/dev", "8:0\n");
    const std::string longest = "nvme012345678901234567890123456";
    g_stock_root.write("/sys/class/nvme/" + longest + "/dev", "240:0\n");
    EXPECT_EQ(ask("sda", &document), -ENOENT); // no helper
    testing::internal::CaptureStderr();
    {
        const THelper helper;
        EXPECT_EQ(ask("sdz", &document), -EAGAIN);
        for (const char *name : {"sda x", "sda\nsda", ""})
            EXPECT_EQ(ask(name, &document), -EAGAIN);
        EXPECT_EQ(THelper::ask_half("sda"), "");
        EXPECT_EQ(ask("sda", &document), 127); // no smartctl
        g_stock_root.tool("/usr/sbin/smartctl",
                          "while [ -e $VELOMOND_ROOT/hangs ]; do sleep 0.05; done\n"
                          "case $6 in */sdb) exec head -c 20000 /dev/zero;; *c) kill -9 $$;; esac\n"
                          "cat; echo $*; exit 4\n");
        EXPECT_EQ(ask("sdb", &document), -EFBIG);
        EXPECT_EQ(ask("sdc", &document), 128 + 9);
        for (const auto &[end, status] : std::vector<std::pair<std::string, int>>{
                 {"256\n", -EAGAIN}, {"-1\n", -EAGAIN}, {"x\n", -EAGAIN}, {"4", -EAGAIN}, {"255\n", 255}, {"0\n", 0}}) {
            g_stock_root.write("/answer", end[0] + std::string("\nexit ") + end);
            EXPECT_EQ(ask("sda", &document), status) << end;
            EXPECT_EQ(document, status < 0 ? "" : end.substr(0, 1));
        }
        g_stock_root.remove("/answer");
        EXPECT_EQ(ask("sda", &document), 4);
        EXPECT_EQ(document, "--json -n standby -H -iA /dev/sda\n");
        EXPECT_EQ(ask(longest, &document, 5, true), 4);
        EXPECT_EQ(document, "--json -n never -H -iA /dev/" + longest + "\n");

        EXPECT_EQ(smart_document("sdz", false, &document), -EAGAIN); // with a helper, no child is started
        EXPECT_EQ(document, "");

        g_stock_root.write("/hangs", "");
        const TAtMost limit(4000);
        EXPECT_EQ(ask("sda", &document, 1), -ETIMEDOUT);
        EXPECT_EQ(ask("sda", &document), -EAGAIN); // the previous one is still running
        {
            const TStopSoon stop;
            EXPECT_EQ(ask(longest, &document), -EINTR);
        }
        g_stock_root.remove("/hangs");
    }
    const std::string unnamed = "no such device: []\nfailed 1\n", unknown = "no such device: [sdz]\nfailed 1\n";
    EXPECT_EQ(testing::internal::GetCapturedStderr(), unknown + unnamed + unnamed + unnamed + unnamed +
                                                          "/usr/sbin/smartctl: No such file or directory\n" + unknown +
                                                          "sda is still being read\nfailed 1\n");
    EXPECT_EQ(ask("sda", &document), -ENOENT); // a stale socket file
    EXPECT_EQ(smart_document("sdz", true, &document), 4);
    EXPECT_EQ(document, "--json -n never -H -iA /dev/sdz\n");
    g_stock_root.remove("/run/velomond");
}

} // namespace
