// child-state: prints what a program was started with.
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <unistd.h>

extern char** environ;

int main(int count, char** arguments) {
    char folder[4096];
    sigset_t mask;
    sigprocmask(SIG_SETMASK, NULL, &mask);
    printf("descriptors");
    for (int number = 0; number < 1024; ++number) {
        if (fcntl(number, F_GETFD) != -1) printf(" %d", number);
    }
    printf("\nsignals");
    for (int number = 1; number < NSIG; ++number) {
        struct sigaction action;
        if (sigismember(&mask, number) == 1) printf(" -%d", number);
        if (sigaction(number, NULL, &action) == 0 && action.sa_handler != SIG_DFL) {
            printf(" %d", number);
        }
    }
    printf("\nleads%s%s", getpgrp() == getpid() ? " group" : "",
           getsid(0) == getpid() ? " session" : "");
    printf("\nfolder %s\narguments", getcwd(folder, sizeof folder));
    for (int i = 1; i < count; ++i) printf(" <%s>", arguments[i]);
    printf("\nenvironment");
    for (char** entry = environ; *entry; ++entry) printf(" <%s>", *entry);
    printf("\n");
    return 0;
}
