#ifndef QUORBIX_VIRTDISK_TOOL_OUTPUT_WATCH_H_
#define QUORBIX_VIRTDISK_TOOL_OUTPUT_WATCH_H_

#include <cerrno>
#include <ostream>
#include <streambuf>

namespace quorbix::virtdisk::tool {

// Knows, while it lives, why printing to a stream has failed.
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

  // The errno of the first write that failed; 0 for none.
  int Error() const { return passing.error; }

 private:
  class PassingOn : public std::streambuf {
   public:
    explicit PassingOn(std::streambuf* passedTo) : target(passedTo) {}
    int error = 0;

   protected:
    int_type overflow(int_type c) override {
      if (traits_type::eq_int_type(c, traits_type::eof())) return traits_type::not_eof(c);
      const int_type put = target->sputc(traits_type::to_char_type(c));
      NoteIf(traits_type::eq_int_type(put, traits_type::eof()));
      return put;
    }
    std::streamsize xsputn(const char* text, std::streamsize count) override {
      const std::streamsize put = target->sputn(text, count);
      NoteIf(put < count);
      return put;
    }
    int sync() override {
      const int synced = target->pubsync();
      NoteIf(synced != 0);
      return synced;
    }

   private:
    void NoteIf(bool hasFailed) {
      if (hasFailed && error == 0) error = errno;
    }

    std::streambuf* target;
  };

  std::ostream& stream;
  PassingOn passing;
  std::streambuf* before;
};

}  // namespace quorbix::virtdisk::tool

#endif  // QUORBIX_VIRTDISK_TOOL_OUTPUT_WATCH_H_
