// Keeps the node's lines off standard output while one lives.
#pragma once

#include <ios>
#include <iostream>
#include <streambuf>

namespace kerul::lidar {

// What is written to std::cout meanwhile is lost.
class SilentCout {
 public:
  SilentCout() : before_(std::cout.rdbuf(&nothing_)) {}
  ~SilentCout() { std::cout.rdbuf(before_); }
  SilentCout(const SilentCout&) = delete;
  SilentCout& operator=(const SilentCout&) = delete;

 private:
  class Nothing : public std::streambuf {
   protected:
    int overflow(int c) override { return c; }
    std::streamsize xsputn(const char* /*text*/, std::streamsize count) override { return count; }
  };
  Nothing nothing_;
  std::streambuf* before_;
};

}  // namespace kerul::lidar
