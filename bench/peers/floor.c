// SPDX-License-Identifier: MIT
/* The physical floor of the import benchmark: the least any importer must do
 * with every file below each DIR given. Per file: open, fstat, mmap, one
 * memchr pass over every byte, munmap, close. Whatever an importer spends
 * beyond this is parsing and output.
 */
#define _GNU_SOURCE
#include <dirent.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

static unsigned long long found;

static void scan_file(char const* path) {
  int const fd = open(path, O_RDONLY);
  if (fd < 0) {
    perror(path);
    return;
  }
  struct stat info;
  if (fstat(fd, &info) == 0 && info.st_size > 0) {
    size_t const size = (size_t)info.st_size;
    char const* data = mmap(NULL, size, PROT_READ, MAP_SHARED, fd, 0);
    if (data != MAP_FAILED) {
      /* A byte mail files do not hold: memchr reads every byte. */
      for (char const *p = data, *end = data + size; (p = memchr(p, '\0', (size_t)(end - p))) != NULL; ++p)
        ++found;
      munmap((void*)data, size);
    }
  }
  close(fd);
}

static void walk(char const* path) {
  struct stat info;
  if (stat(path, &info) != 0) {
    perror(path);
    return;
  }
  if (!S_ISDIR(info.st_mode)) {
    scan_file(path);
    return;
  }
  struct dirent** entries;
  int const count = scandir(path, &entries, NULL, alphasort);
  for (int i = 0; i < count; ++i) {
    if (strcmp(entries[i]->d_name, ".") != 0 && strcmp(entries[i]->d_name, "..") != 0) {
      size_t const length = strlen(path) + strlen(entries[i]->d_name) + 2;
      char* child = malloc(length);
      snprintf(child, length, "%s/%s", path, entries[i]->d_name);
      walk(child);
      free(child);
    }
    free(entries[i]);
  }
  free(entries);
}

int main(int argc, char** argv) {
  for (int i = 1; i < argc; ++i)
    walk(argv[i]);
  printf("%llu NUL bytes\n", found);
  return 0;
}
