// The smallest CGI that prints the bytes of a Query answer: the yardstick of the request benchmark.
#include <unistd.h>

int main() {
  static const char kAnswer[] =
      "Content-Type: application/json; charset=utf-8\r\nCache-Control: no-store\r\n\r\n"
      "{\"data\":{\"format\":\"mjpeg\"},\"success\":true}\n";
  return write(STDOUT_FILENO, kAnswer, sizeof(kAnswer) - 1) > 0 ? 0 : 1;
}
