// A small INI store in the form desktop profile files use: "[section]" lines, "key=value"
// lines, anything else kept as it is. Section and key names compare without regard to ASCII
// case; keys and values are trimmed of blanks. The whole file is read once, changed in memory
// and written back once, so that a table's 256 keys cost one read or one write.
#ifndef KEVRA_LUT_DETAIL_INI_FILE_H
#define KEVRA_LUT_DETAIL_INI_FILE_H

#include <string>
#include <vector>

namespace kevra {
namespace detail {

class IniFile {
public:
    // A missing file reads as an empty store (true); false only when the file exists and
    // cannot be read.
    bool load(const std::string &path);
    // Writes the whole store (through a temporary file renamed over the old one).
    bool save(const std::string &path) const;

    // Null when the section or key is absent.
    const std::string *find(const std::string &section, const std::string &key) const;
    // Replaces the key's value, or adds the key at the end of its section, or adds the section
    // at the end of the file.
    void set(const std::string &section, const std::string &key, const std::string &value);

private:
    struct Line {
        std::string text;
        // Parsed form: a section header, a key line, or neither.
        bool is_section = false;
        bool is_key = false;
        std::string name;  // section name or key
        std::string value; // key lines only
    };
    static Line parse(const std::string &text);
    // Index of the section's header line, or -1.
    long find_section(const std::string &section) const;

    std::vector<Line> m_lines;
};


} // namespace detail
} // namespace kevra

#endif
