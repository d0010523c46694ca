// The whole of the credential client in system calls: what it costs at the least.
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/uio.h>
#include <unistd.h>

int main(int argc, char** argv) {
    char* const path = getenv("MV_EDITOR_CONN");
    if (argc != 2 || !path) return EXIT_FAILURE;

    int pipe = open(path, O_WRONLY | O_CLOEXEC);
    char request = 3;
    struct iovec frame[] = {{&request, 1}, {argv[1], strlen(argv[1])}};
    if (pipe < 0 || writev(pipe, frame, 2) != (ssize_t)(1 + frame[1].iov_len)) return EXIT_FAILURE;
    close(pipe);

    pipe = open(path, O_RDONLY | O_CLOEXEC);
    char answer[4096];
    size_t size = 0;
    for (ssize_t count; size < sizeof answer - 1; size += (size_t)count) {
        if ((count = read(pipe, answer + size, sizeof answer - 1 - size)) <= 0) break;
    }
    if (size == 0) return EXIT_FAILURE;
    answer[size] = '\n';
    return write(STDOUT_FILENO, answer + 1, size) == (ssize_t)size ? EXIT_SUCCESS : EXIT_FAILURE;
}
