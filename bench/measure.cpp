// Runs a command several times and prints the least wall seconds, the least processor seconds and the
// largest peak of its memory in MiB. A run that fails or outlasts the limit ends the measuring with status 1.
#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

static double seconds_of(const timeval &time) {
    return static_cast<double>(time.tv_sec) + 1e-6 * static_cast<double>(time.tv_usec);
}

int main(int argc, char **argv) {
    if (argc < 5) {
        fputs("usage: measure REPEATS SECONDS OUTPUT COMMAND [ARGUMENT]...\n", stderr);
        return 2;
    }
    double best = 1e9, cpu = 1e9, peak = 0;
    for (int left = atoi(argv[1]); left > 0; left--) {
        auto begin = std::chrono::steady_clock::now();
        pid_t child = fork();
        if (child < 0)
            return 2;
        if (child == 0) {
            int out = open(argv[3], O_WRONLY | O_CREAT | O_TRUNC, 0644);
            if (out < 0 || dup2(out, STDOUT_FILENO) < 0)
                _exit(126);
            close(out);
            alarm(static_cast<unsigned>(atoi(argv[2]))); // outlives the exec and ends the command
            execvp(argv[4], argv + 4);
            _exit(127);
        }
        int status;
        rusage usage;
        if (wait4(child, &status, 0, &usage) != child)
            return 2;
        double wall = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
        if (WIFSIGNALED(status) && WTERMSIG(status) == SIGALRM) {
            printf("over %s s\n", argv[2]);
            return 1;
        }
        if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
            printf("failed\n");
            return 1;
        }
        best = std::min(best, wall);
        cpu = std::min(cpu, seconds_of(usage.ru_utime) + seconds_of(usage.ru_stime));
        peak = std::max(peak, static_cast<double>(usage.ru_maxrss) / 1024);
    }
    printf("%.5f %.4f %.1f\n", best, cpu, peak);
    return 0;
}
