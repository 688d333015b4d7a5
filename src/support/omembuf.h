// An output stream buffer over a fixed memory area that it doesn't own.
//
// pubsetbuf(pointer, size) makes that memory the put area; output and
// seeking stay inside it. There is no overflow handling: once the area is
// full the stream that writes through it sets its error state, keeps what
// fitted and ignores further insertions.
//
// Thread safety: none; one thread uses an object at a time.
#ifndef HIVECTL_SUPPORT_OMEMBUF_H_
#define HIVECTL_SUPPORT_OMEMBUF_H_

#include <ios>
#include <streambuf>
#include <string>

template <class CharT, class Traits = std::char_traits<CharT>>
class basic_omembuf : public std::basic_streambuf<CharT, Traits> {
 public:
  using base_type = std::basic_streambuf<CharT, Traits>;
  using char_type = typename base_type::char_type;
  using pos_type = typename base_type::pos_type;
  using off_type = typename base_type::off_type;

 protected:
  base_type* setbuf(char_type* pointer, std::streamsize size) override {
    this->setp(pointer, pointer + size);
    return this;
  }

  // REQUIRES: the area is at most INT_MAX characters (pbump takes an int).
  pos_type seekoff(off_type offset, std::ios_base::seekdir direction,
                   std::ios_base::openmode mode) override {
    const pos_type failed(off_type(-1));
    if (!(mode & std::ios_base::out)) return failed;
    const off_type size = this->epptr() - this->pbase();
    off_type origin = 0;
    if (direction == std::ios_base::cur) {
      origin = this->pptr() - this->pbase();
    } else if (direction == std::ios_base::end) {
      origin = size;
    }
    const off_type target = origin + offset;
    if (target < 0 || target > size) return failed;
    this->setp(this->pbase(), this->epptr());
    this->pbump(static_cast<int>(target));
    return pos_type(target);
  }

  pos_type seekpos(pos_type position, std::ios_base::openmode mode) override {
    return seekoff(off_type(position), std::ios_base::beg, mode);
  }
};

#endif  // HIVECTL_SUPPORT_OMEMBUF_H_
