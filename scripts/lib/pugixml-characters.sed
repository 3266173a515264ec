# Makes pugixml's XPath functions count characters of UTF-8, by support/utf8_characters.h.
1i #include "support/utf8_characters.h"

# string-length
/case ast_func_string_length_0:/,/^\t\t\t}/s/static_cast<double>\((.*)\.length\(\)\)/static_cast<double>(cvn::CountCharacters(\1.c_str()))/
/case ast_func_string_length_1:/,/^\t\t\t}/s/static_cast<double>\((.*)\.length\(\)\)/static_cast<double>(cvn::CountCharacters(\1.c_str()))/

# substring: positions are of characters
/case ast_func_substring_2:/,/^\t\t\t}/{
  s/s_length = s\.length\(\)/s_length = cvn::CountCharacters(s.c_str())/
  s/s\.c_str\(\) \+ \(pos - 1\)/cvn::SkipCharacters(s.c_str(), pos - 1)/
}
/case ast_func_substring_3:/,/^\t\t\t}/{
  s/s_length = s\.length\(\)/s_length = cvn::CountCharacters(s.c_str())/
  s/s\.c_str\(\) \+ \(pos - 1\)/cvn::SkipCharacters(s.c_str(), pos - 1)/
  s/s\.c_str\(\) \+ \(end - 1\)/cvn::SkipCharacters(s.c_str(), end - 1)/
}

# translate: the text may grow. Where all is ASCII, the library's own way for constants is right.
/case ast_func_translate:/,/^\t\t\t}/{
  s/s\.data\(stack\.result\)/static_cast<char_t*>(stack.result->allocate(cvn::TranslateCharacters(s.c_str(), from.c_str(), to.c_str(), 0) + 1))/
  s/translate\(begin, from\.c_str\(\), to\.c_str\(\), to\.length\(\)\)/begin + cvn::TranslateCharacters(s.c_str(), from.c_str(), to.c_str(), begin)/
}
