// SPDX-License-Identifier: MIT
/* peak_rss COMMAND [ARG]...: runs COMMAND with its output discarded and
 * prints its peak resident set size in KiB.
 *
 * A child's peak counts the pages of the process it was forked from until it
 * execs, so the command must be forked from a small process like this one,
 * not from the benchmark's Python interpreter.
 */
#include <fcntl.h>
#include <stdio.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

int main(int argc, char** argv) {
  if (argc < 2) {
    fputs("usage: peak_rss COMMAND [ARG]...\n", stderr);
    return 2;
  }
  pid_t const pid = fork();
  if (pid < 0) {
    perror("fork");
    return 1;
  }
  if (pid == 0) {
    int const null = open("/dev/null", O_WRONLY);
    dup2(null, 1);
    dup2(null, 2);
    execvp(argv[1], argv + 1);
    _exit(127);
  }
  int status;
  struct rusage usage;
  if (wait4(pid, &status, 0, &usage) < 0) {
    perror("wait4");
    return 1;
  }
  printf("%ld\n", usage.ru_maxrss);
  return WIFEXITED(status) && WEXITSTATUS(status) < 2 ? 0 : 1;
}
