#include "lut/detail/ini_file.h"

#include <cstdint>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <system_error>
#include <filesystem>

namespace kevra {
namespace detail {

namespace {

std::string trim(const std::string &s)
{
    const char *blanks = " \t\r\n";
    const std::string::size_type b = s.find_first_not_of(blanks);
    if (b == std::string::npos)
        return std::string();
    const std::string::size_type e = s.find_last_not_of(blanks);
    return s.substr(b, e - b + 1);
}

bool same_name(const std::string &a, const std::string &b)
{
    if (a.size() != b.size())
        return false;
    for (std::string::size_type i = 0; i < a.size(); ++i) {
        unsigned char x = static_cast<unsigned char>(a[i]);
        unsigned char y = static_cast<unsigned char>(b[i]);
        if (x >= 'A' && x <= 'Z')
            x = static_cast<unsigned char>(x - 'A' + 'a');
        if (y >= 'A' && y <= 'Z')
            y = static_cast<unsigned char>(y - 'A' + 'a');
        if (x != y)
            return false;
    }
    return true;
}

} // namespace

IniFile::Line IniFile::parse(const std::string &text)
{
    Line line;
    line.text = text;
    const std::string t = trim(text);
    if (t.size() >= 2 && t.front() == '[') {
        const std::string::size_type close = t.find(']');
        if (close != std::string::npos) {
            line.is_section = true;
            line.name = trim(t.substr(1, close - 1));
        }
        return line;
    }
    if (t.empty() || t.front() == ';' || t.front() == '#')
        return line;
    const std::string::size_type eq = t.find('=');
    if (eq == std::string::npos)
        return line;
    line.is_key = true;
    line.name = trim(t.substr(0, eq));
    line.value = trim(t.substr(eq + 1));
    return line;
}

bool IniFile::load(const std::string &path)
{
    m_lines.clear();
    std::error_code ec;
    if (!std::filesystem::exists(path, ec))
        return !ec;
    std::ifstream in(path, std::ios::binary);
    if (!in)
        return false;
    std::string text;
    while (std::getline(in, text)) {
        if (!text.empty() && text.back() == '\r')
            text.pop_back();
        m_lines.push_back(parse(text));
    }
    return !in.bad();
}

bool IniFile::save(const std::string &path) const
{
    const std::string temporary = path + ".tmp";
    {
        std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
        if (!out)
            return false;
        for (const Line &line : m_lines)
            out << line.text << '\n';
        out.flush();
        if (!out) {
            out.close();
            std::remove(temporary.c_str());
            return false;
        }
    }
    std::error_code ec;
    std::filesystem::rename(temporary, path, ec);
    if (ec) {
        std::remove(temporary.c_str());
        return false;
    }
    return true;
}

long IniFile::find_section(const std::string &section) const
{
    for (std::size_t i = 0; i < m_lines.size(); ++i)
        if (m_lines[i].is_section && same_name(m_lines[i].name, section))
            return static_cast<long>(i);
    return -1;
}

const std::string *IniFile::find(const std::string &section, const std::string &key) const
{
    const long start = find_section(section);
    if (start < 0)
        return nullptr;
    for (std::size_t i = static_cast<std::size_t>(start) + 1; i < m_lines.size(); ++i) {
        if (m_lines[i].is_section)
            break;
        if (m_lines[i].is_key && same_name(m_lines[i].name, key))
            return &m_lines[i].value;
    }
    return nullptr;
}

void IniFile::set(const std::string &section, const std::string &key, const std::string &value)
{
    const Line entry = parse(key + "=" + value);
    const long start = find_section(section);
    if (start < 0) {
        if (!m_lines.empty() && !trim(m_lines.back().text).empty())
            m_lines.push_back(parse(std::string()));
        m_lines.push_back(parse("[" + section + "]"));
        m_lines.push_back(entry);
        return;
    }
    std::size_t insert_at = static_cast<std::size_t>(start) + 1;
    for (std::size_t i = insert_at; i < m_lines.size(); ++i) {
        if (m_lines[i].is_section)
            break;
        if (m_lines[i].is_key) {
            if (same_name(m_lines[i].name, key)) {
                m_lines[i] = entry;
                return;
            }
            insert_at = i + 1;
        }
    }
    m_lines.insert(m_lines.begin() + static_cast<std::ptrdiff_t>(insert_at), entry);
}


} // namespace detail
} // namespace kevra
