// Trust in the update server: certificates of an authority of the test's own, checked by the daemon as on a
// terminal, where the system's bundle says which authorities count.
#include "system/DaemonFixture.h"
#include <csignal>
#include <cstring>
#include <filesystem>

namespace {

constexpr const char* SystemBundle = "/etc/ssl/certs/ca-certificates.crt";

constexpr const char* Configuration = R"(daemon off;
master_process off;
pid /lab/web/tls.pid;
error_log stderr notice;
events { worker_connections 64; }
http {
    access_log off;
    client_body_temp_path /lab/web/temp;
    proxy_temp_path /lab/web/temp;
    fastcgi_temp_path /lab/web/temp;
    uwsgi_temp_path /lab/web/temp;
    scgi_temp_path /lab/web/temp;
    server {
        listen 127.0.0.1:@PORT@ ssl;
        ssl_certificate /lab/web/server.pem;
        ssl_certificate_key /lab/web/server.key;
        location = /update.zemp { alias /lab/images/update.zemp; }
    }
}
)";

class Https : public DaemonTest {
  protected:
    // Makes a key and a certificate NAME.pem; signed by the authority, or by itself when there is none.
    void makeCertificate(const std::string& name, const std::string& extra) const {
        const std::string base = mWork.web() + "/" + name;
        const std::string command =
            "openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 2 "
            "-subj '/CN=" +
            name + "' -keyout " + base + ".key -out " + base + ".pem " + extra + " 2>" + base + ".log";
        ASSERT_EQ(std::system(command.c_str()), 0) << readText(base + ".log");
    }

    // Serves the lab's image over TLS, with a certificate for `subject`, on the port of the lab's own server.
    void serve(const std::string& subject) {
        makeCertificate("authority", "");
        makeCertificate("server", "-CA " + mWork.web() + "/authority.pem -CAkey " + mWork.web() +
                                      "/authority.key -addext subjectAltName=" + subject);
        mUrl = "https" + mLab->webServer()->url().substr(std::strlen("http"));
        const size_t port = std::strlen("https://127.0.0.1:");
        mLab->webServer()->stop();
        std::string text = Configuration;
        text.replace(text.find("@PORT@"), 6, mUrl, port, mUrl.find('/', port) - port);
        std::ofstream(mWork.web() + "/tls.conf") << text;
        lab::ChildOptions options;
        options.arguments = {lab::findProgram("nginx"), "-e", "stderr", "-p", "/lab/web", "-c",
                             "/lab/web/tls.conf"};
        const lab::Descriptor output =
            lab::Descriptor::open(mDirectory.file("tls.log"), O_WRONLY | O_CREAT | O_APPEND);
        options.output = output.get();
        mServer = mLab->terminal().start(options);
        ASSERT_TRUE(eventually([&] { return std::filesystem::exists(mWork.web() + "/tls.pid"); }))
            << readText(mDirectory.file("tls.log"));
    }

    // From now on the terminal trusts the test's authority, and no other.
    void trustAuthority() { mLab->terminal().bind({mWork.web() + "/authority.pem", SystemBundle}); }

    void update() {
        mLab->config()->configure(mLab->version(), mUrl);
        mLab->startDaemon();
    }

    // Leaves the daemon to the lab, which kills it: it tries again and again, and a stop while certificates
    // are read loses what the TLS library has in hand. That is the process's last leak, but the sanitizer
    // counts it.
    void expectRefused() {
        ASSERT_TRUE(eventually([&] { return hasLogged(", 60) Permanent."); })) << readText(mLab->daemonLog());
        EXPECT_EQ(mLab->fetchedBytes(), 0U);
        EXPECT_EQ(mLab->config()->readyForInstall(), "");
    }

    std::string mUrl;
    std::unique_ptr<lab::TerminalProcess> mServer;
};

TEST_F(Https, UpdatesFromAServerThatTheAuthorityVouchesFor) {
    mLab->startServices();
    serve("IP:127.0.0.1");
    trustAuthority();
    update();
    EXPECT_TRUE(eventually([&] { return !mLab->config()->readyForInstall().empty(); }))
        << readText(mLab->daemonLog());
    expectStop(SIGINT);
}

TEST_F(Https, RefusesAnAuthorityThatTheSystemDoesNotKnow) {
    mLab->startServices();
    serve("IP:127.0.0.1");
    update();
    expectRefused();
}

TEST_F(Https, RefusesACertificateForAnotherName) {
    mLab->startServices();
    serve("DNS:updates.example.org");
    trustAuthority();
    update();
    expectRefused();
}

} // namespace
