// The second second of a clip at half its speed, a square of it, 720 pixels high: one movie, encoded once.
#include <clipworks/edit/Chain.h>

#include <iostream>

int main(int, char** argv) {
  const auto made =
      clipworks::Chain(argv[1]).speed(1, 2, 2).crop({0, 0, 800, 800}).compress(720, 2'500'000).save("short.mp4");
  made ? std::cout << made->path.string() << '\n' : std::cerr << made.error().sentence << '\n';
  return made ? 0 : 1;
}
