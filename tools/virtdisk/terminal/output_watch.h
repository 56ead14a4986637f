#ifndef QUORBIX_VIRTDISK_TOOL_OUTPUT_WATCH_H_
#define QUORBIX_VIRTDISK_TOOL_OUTPUT_WATCH_H_

#include <ostream>
#include <streambuf>

namespace quorbix::virtdisk::tool {

// Knows, while it lives, whether anything was printed to a stream.
class OutputWatch {
 public:
  explicit OutputWatch(std::ostream& watched)
      : stream(watched), passing(watched.rdbuf()), before(watched.rdbuf(&passing)) {}
  ~OutputWatch() {
    const std::ios::iostate state = stream.rdstate();
    stream.rdbuf(before);  // which forgets what has failed
    stream.clear(state);
  }
  OutputWatch(const OutputWatch&) = delete;
  OutputWatch& operator=(const OutputWatch&) = delete;

  bool HasPrinted() const { return passing.hasPrinted; }

 private:
  class PassingOn : public std::streambuf {
   public:
    explicit PassingOn(std::streambuf* passedTo) : target(passedTo) {}
    bool hasPrinted = false;

   protected:
    int_type overflow(int_type c) override {
      if (traits_type::eq_int_type(c, traits_type::eof())) return traits_type::not_eof(c);
      hasPrinted = true;
      return target->sputc(traits_type::to_char_type(c));
    }
    std::streamsize xsputn(const char* text, std::streamsize count) override {
      hasPrinted = hasPrinted || count > 0;
      return target->sputn(text, count);
    }
    int sync() override { return target->pubsync(); }

   private:
    std::streambuf* target;
  };

  std::ostream& stream;
  PassingOn passing;
  std::streambuf* before;
};

}  // namespace quorbix::virtdisk::tool

#endif  // QUORBIX_VIRTDISK_TOOL_OUTPUT_WATCH_H_
