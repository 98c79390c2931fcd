// Preloaded into a tool of the system that makes or judges an image: sleeping and flushing return at
// once. sgdisk and sfdisk wait for a kernel that might look at a disk, and flush every file system
// of the host; both only take time from a test.
#include <time.h>

unsigned sleep(unsigned seconds);
unsigned sleep(unsigned seconds) {
  (void)seconds;
  return 0;
}

int usleep(unsigned microseconds);
int usleep(unsigned microseconds) {
  (void)microseconds;
  return 0;
}

int nanosleep(const struct timespec* duration, struct timespec* rest) {
  (void)duration;
  (void)rest;
  return 0;
}

void sync(void);
void sync(void) {}

int fsync(int descriptor);
int fsync(int descriptor) {
  (void)descriptor;
  return 0;
}
