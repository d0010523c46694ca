// pipe-peer PIPE STEP...: the other side of a hand-off, in bare system calls. The step ">FILE"
// opens the pipe for reading and copies what comes to FILE; "<FILE" opens it for writing and sends
// FILE.
#include <fcntl.h>
#include <unistd.h>

static char bytes[4096];

static int copy(int from, int to) {
    ssize_t count;
    while ((count = read(from, bytes, sizeof bytes)) > 0) {
        if (write(to, bytes, (size_t)count) != count) return -1;
    }
    return (int)count;
}

int main(int count, char** arguments) {
    for (int step = 2; step < count; ++step) {
        const int receives = arguments[step][0] == '>';
        const int file =
            open(arguments[step] + 1, receives ? O_WRONLY | O_CREAT | O_TRUNC : O_RDONLY, 0600);
        const int end = open(arguments[1], receives ? O_RDONLY : O_WRONLY);
        if (file < 0 || end < 0 || (receives ? copy(end, file) : copy(file, end)) != 0) return 1;
        close(end);
        close(file);
    }
    return 0;
}
