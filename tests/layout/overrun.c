// Damages its own memory as its argument says, to show what the guards do.
#include <stdint.h>
#include <stdio.h>
#include <string.h>

extern uintptr_t __stack_chk_guard;

// Because the compiler cannot see how much is copied, only the guard of the function's frame helps.
__attribute__((noinline)) static void copyText(char* target, const char* text) {
  while ((*target++ = *text++) != 0) {
  }
}

__attribute__((noinline)) static int damageStack(const char* text) {
  char room[16];
  copyText(room, text);
  return room[0];
}

__attribute__((noinline)) static int copyTooMuch(const char* text) {
  char room[16];
  memcpy(room, text, strlen(text) + 1);
  puts("copied");
  return room[0];
}

int main(int count, char** arguments) {
  if (count < 2) return 2;
  const char* text = count > 2 ? arguments[2] : "fits";
  if (strcmp(arguments[1], "stack") == 0) return damageStack(text) == 0;
  if (strcmp(arguments[1], "copy") == 0) return copyTooMuch(text) == 0;
  printf("%016llx\n", (unsigned long long)__stack_chk_guard);
  return 0;
}
