// Quoting of values as the saved-entity writer writes them, and key validity.

#include <string>

#include "kapParameterFileText.h"
#include "kapparameter/kapParameterFile.h"

using namespace kap_file_detail;

void kap_append_quoted(utString& out, std::string_view value) {
    out += '"';
    const char* p = value.data();
    const char* e = p + value.size();
    const char* run = p;
    auto control = [&out](unsigned cp) {
        out += "\\u00";
        out += kHex[cp >> 4];
        out += kHex[cp & 0xf];
    };
    while (p < e) {
        const unsigned char c = uc(*p);
        if ((cls(*p) & kPlain) && c != 0x7f) {
            ++p;
            continue;
        }
        if (c >= 0x80) {
            const std::size_t n = utf8_length(p, e);
            if (n == 2 && c == 0xc2 && uc(p[1]) < 0xa0) {  // C1 controls U+0080-U+009F
                out.append(run, p);
                control(uc(p[1]));
                p += 2;
                run = p;
            } else if (n == 0) {
                out.append(run, p);
                out += "\xEF\xBF\xBD";  // U+FFFD
                ++p;
                run = p;
            } else {
                p += n;
            }
            continue;
        }
        out.append(run, p);
        switch (c) {
            case '"':
                out += "\\\"";
                break;
            case '\\':
                out += "\\\\";
                break;
            case '\n':
                out += "\\n";
                break;
            case '\t':
                out += "\\t";
                break;
            case '\r':
                out += "\\r";
                break;
            default:
                control(c);
                break;
        }
        ++p;
        run = p;
    }
    out.append(run, p);
    out += '"';
}

utString kap_quote(std::string_view value) {
    utString out;
    out.reserve(value.size() + 2);
    kap_append_quoted(out, value);
    return out;
}

bool kap_is_valid_file_key(std::string_view key) noexcept {
    if (key.empty() || !(cls(key[0]) & kKeyStart)) return false;
    for (char c : key) {
        if (!(cls(c) & kKeyChar)) return false;
    }
    return true;
}

utString kap_message_text(std::string_view text) {
    utString out;
    out.reserve(text.size());
    const char* p = text.data();
    const char* e = p + text.size();
    auto byte = [&out](unsigned char c) {
        out += "\\x";
        out += kHex[c >> 4];
        out += kHex[c & 0xf];
    };
    while (p < e) {
        const unsigned char c = uc(*p);
        if (c >= 0x20 && c < 0x7f) {
            if (c == '\\') out += '\\';
            out += static_cast<char>(c);
            ++p;
            continue;
        }
        const std::size_t n = c >= 0x80 ? utf8_length(p, e) : 0;
        if (n == 0 || (n == 2 && c == 0xc2 && uc(p[1]) < 0xa0)) {
            // A control character or a byte outside valid UTF-8; a C1 control keeps both bytes.
            const std::size_t bytes = n == 0 ? 1 : n;
            for (std::size_t i = 0; i < bytes; ++i) {
                byte(uc(p[i]));
            }
            p += bytes;
            continue;
        }
        out.append(p, n);
        p += n;
    }
    return out;
}
