// The text that a write puts together: bounded by the size of a profile file, never cut.
#pragma once

#include <string_view>

#include "libIniFile.h"

class IniText {
  public:
    // Once something did not fit, the text is not to be used.
    bool Fits() const { return fits_; }
    const char* Terminated() const { return bytes_; }

    IniText& operator<<(std::string_view text);

    // Adds `format` as a print with the one argument `argument` would: "%%" and the conversions of an int ("%c"
    // too, whose zero byte would end the text) are interpreted, everything else, other conversions included, is copied.
    void Print(std::string_view format, int argument);

  private:
    void PrintInteger(std::string_view directive, int argument);

    char bytes_[INI_FILE_MAX]{};
    size_t length_ = 0;
    bool fits_ = true;
};
