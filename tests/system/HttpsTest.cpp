// Trust in the update server: certificates of an authority of the test's own, checked by the daemon as on a
// terminal, where the system's bundle says which authorities count.
#include "system/SoakTerminal.h"
#include <csignal>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>

namespace {

constexpr const char* SystemBundle = "/etc/ssl/certs/ca-certificates.crt";

class Https : public testing::Test {
  protected:
    // Makes a key and a certificate NAME.pem; signed by the authority, or by itself when there is none.
    void makeCertificate(const std::string& name, const std::string& extra) const {
        const std::string command =
            "openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 2 "
            "-subj '/CN=" +
            name + "' -keyout " + mWeb + name + ".key -out " + mWeb + name + ".pem " + extra + " 2>" + mLog;
        ASSERT_EQ(std::system(command.c_str()), 0) << readText(mLog);
    }

    // Serves the image over TLS, with a certificate for `subject`, on the port of the lab's own server, and
    // lets the daemon update from there.
    void updateFrom(const std::string& subject) {
        lab::Lab& lab = mTerminal.lab();
        makeCertificate("authority", "");
        makeCertificate("server", "-CA " + mWeb + "authority.pem -CAkey " + mWeb +
                                      "authority.key -addext subjectAltName=" + subject);
        lab.webServer()->stop();
        std::filesystem::remove(mWeb + "nginx.pid");
        std::string configuration = readText(mWeb + "nginx.conf");
        configuration.insert(
            configuration.find(';', configuration.find("listen ")),
            " ssl; ssl_certificate /lab/web/server.pem; ssl_certificate_key /lab/web/server.key");
        std::ofstream(mWeb + "tls.conf") << configuration;
        lab::ChildOptions options;
        options.arguments = {lab::findProgram("nginx"), "-e", "stderr", "-p", "/lab/web", "-c",
                             "/lab/web/tls.conf"};
        mServer = startIn(lab.terminal(), options, mLog);
        ASSERT_TRUE(eventually([&] { return std::filesystem::exists(mWeb + "nginx.pid"); }))
            << readText(mLog);
        lab.config()->configure(lab.version(),
                                "https://me:secret@" + lab.webServer()->url().substr(strlen("http://")));
        mTerminal.start();
    }

    // From now on the terminal trusts the test's authority, and no other.
    void trustAuthority() { mTerminal.lab().terminal().bind({mWeb + "authority.pem", SystemBundle}); }

    // The stop may come while certificates are read, since it is tried again and again.
    void expectRefused(const std::string& reason) {
        ASSERT_TRUE(eventually([&] { return mTerminal.hasLogged(", 60) Permanent."); })) << mTerminal.log();
        EXPECT_EQ(mTerminal.lab().fetchedBytes(), 0U);
        EXPECT_EQ(mTerminal.lab().config()->readyForInstall(), "");
        EXPECT_THAT(mTerminal.check().text, testing::HasSubstr("server         WRONG: SSL"));
        EXPECT_THAT(mTerminal.check().text, testing::HasSubstr(reason));
        EXPECT_EQ(mTerminal.stop(SIGTERM), "");
    }

    SoakTerminal mTerminal;
    const std::string mWeb = mTerminal.work().web() + "/";
    const std::string mLog = mWeb + "tls.log";
    std::unique_ptr<lab::TerminalProcess> mServer;
};

TEST_F(Https, UpdatesFromAServerThatTheAuthorityVouchesFor) {
    trustAuthority();
    updateFrom("IP:127.0.0.1");
    EXPECT_EQ(mTerminal.untilReady(), "");
    EXPECT_TRUE(mTerminal.hasLogged("https://***@127.0.0.1"));
    EXPECT_FALSE(mTerminal.hasLogged("secret"));
}

TEST_F(Https, RefusesAnAuthorityThatTheSystemDoesNotKnow) {
    updateFrom("IP:127.0.0.1");
    expectRefused("issuer certificate: see the server's certificate, the authorities");
}

TEST_F(Https, RefusesACertificateForAnotherName) {
    trustAuthority();
    updateFrom("DNS:updates.example.org");
    expectRefused("name");
}

} // namespace
