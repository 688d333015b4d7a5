// Character classes as the C locale has them, whatever the process locale.
#ifndef HIVECTL_SUPPORT_ASCII_H_
#define HIVECTL_SUPPORT_ASCII_H_

// The white space of isspace, which strtoull and its kin skip: blank, tab,
// line feed, vertical tab, form feed and carriage return.
inline bool IsBlank(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

// Only A-Z fold to a-z, as strcasecmp folds in the C locale.
inline char FoldAscii(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

#endif  // HIVECTL_SUPPORT_ASCII_H_
