// recordcard view: the card in this computer's browser.
#include <pthread.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>
#include <CLI/CLI.hpp>

#include <cstdio>
#include <memory>
#include <string>
#include <thread>

#include "commands/Commands.h"
#include "export/Ffmpeg.h"
#include "text/Error.h"
#include "view/CardServer.h"

namespace card {

namespace {

struct ViewArguments {
    std::string path;
    std::string listen;
    bool no_open = false;
};

// Whoever opens addresses on this desktop; a computer without one has none, and the address was printed.
void OpenBrowser(const std::string& address) {
    const pid_t child = fork();
    if (child == 0) {
        if (fork() != 0) _exit(0);  // nobody waits for the browser
        execlp("xdg-open", "xdg-open", address.c_str(), static_cast<char*>(nullptr));
        _exit(0);
    }
    if (child > 0) waitpid(child, nullptr, 0);
}

int View(const ViewArguments& arguments) {
    if (!arguments.listen.empty()) {
        throw CardError(
            "The card is shown to this computer alone: to send its pictures over a network would need a password and "
            "an encrypted connection, which this command does not have. From another computer use ssh: "
            "ssh -L PORT:127.0.0.1:PORT THIS_COMPUTER, with the port that the command prints.",
            kUsage);
    }
    av_log_set_level(AV_LOG_FATAL);
    sigset_t stops;
    sigemptyset(&stops);
    sigaddset(&stops, SIGINT);
    sigaddset(&stops, SIGTERM);
    sigaddset(&stops, SIGHUP);
    pthread_sigmask(SIG_BLOCK, &stops, nullptr);
    signal(SIGPIPE, SIG_IGN);  // a browser that went away
    CardServer server(arguments.path);
    std::thread serving([&] { server.Run(); });
    std::printf("%s\nThe card is shown there until this command is stopped (Ctrl-C).\n", server.Address().c_str());
    std::fflush(stdout);
    if (!arguments.no_open) OpenBrowser(server.Address());
    int signal_number = 0;
    sigwait(&stops, &signal_number);
    server.Stop();
    serving.join();
    return kDone;
}

}  // namespace

Run PrepareView(CLI::App& command) {
    const auto arguments = std::make_shared<ViewArguments>();
    command.add_option("CARD", arguments->path, "Mounted card, folder, device or image file")->required();
    command.add_flag("--no-open", arguments->no_open, "Only print the address, open no browser");
    command.add_option("--listen", arguments->listen, "Refused: says how to look at the card from another computer")
        ->type_name("ADDRESS");
    command.footer(
        "Under the address printed, for programs: list.json (sections, gaps, events), clip.mp4?from=S&to=S (what was\n"
        "recorded from second S to S since 1970 UTC), file/NAME (a file of the card, also in ranges). The address is\n"
        "random, and good on this computer only, while the command runs.");
    return [arguments] { return View(*arguments); };
}

}  // namespace card
