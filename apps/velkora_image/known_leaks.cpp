// Tells LeakSanitizer what the library leaves allocated on purpose: the partition offsets of a
// converter that has been destroyed, and the backup of one whose rollback could not open the disk
// (see DestroyVelkoraSDK).

extern "C" {
const char* __lsan_default_suppressions();
const char* __lsan_default_options();
}

extern "C" const char* __lsan_default_suppressions() {
  return "leak:velkora::GptPartitionOffsets\nleak:velkora::MbrPartitionOffsets\n"
         "leak:velkora::FillBackupStorage\n";
}

// Standard error belongs to the program.
extern "C" const char* __lsan_default_options() {
  return "print_suppressions=0";
}
