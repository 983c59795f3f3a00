#include "base/regex.h"

#define PCRE2_CODE_UNIT_WIDTH 8
#include <pcre2.h>

#include <stdexcept>

namespace quillora::base {

struct Regex::Compiled {
  pcre2_code* code = nullptr;
  ~Compiled() {
    if (code) pcre2_code_free(code);
  }
};

namespace {
std::string errorText(int code) {
  PCRE2_UCHAR buffer[256];
  pcre2_get_error_message(code, buffer, sizeof buffer);
  return reinterpret_cast<const char*>(buffer);
}

// Match data is per thread and grown on demand, so matching allocates only the first time.
struct MatchData {
  pcre2_match_data* data = nullptr;
  uint32_t pairs = 0;
  ~MatchData() {
    if (data) pcre2_match_data_free(data);
  }
  pcre2_match_data* forPattern(const pcre2_code* code) {
    uint32_t needed = 0;
    pcre2_pattern_info(code, PCRE2_INFO_CAPTURECOUNT, &needed);
    needed += 1;
    if (!data || pairs < needed) {
      if (data) pcre2_match_data_free(data);
      pairs = needed < 16 ? 16 : needed;
      data = pcre2_match_data_create(pairs, nullptr);
    }
    return data;
  }
};
thread_local MatchData t_matchData;
}  // namespace

Regex::Regex(std::string_view pattern, RegexOptions options)
    : m_pattern(pattern), m_compiled(std::make_unique<Compiled>()) {
  uint32_t flags = PCRE2_UTF | PCRE2_UCP | PCRE2_MATCH_INVALID_UTF;
  if (options.caseless) flags |= PCRE2_CASELESS;
  if (options.multiline) flags |= PCRE2_MULTILINE;
  if (options.dotAll) flags |= PCRE2_DOTALL;
  int error = 0;
  PCRE2_SIZE offset = 0;
  m_compiled->code = pcre2_compile(reinterpret_cast<PCRE2_SPTR>(pattern.data()), pattern.size(),
                                   flags, &error, &offset, nullptr);
  if (!m_compiled->code) {
    throw std::logic_error("Regular expression '" + m_pattern + "' doesn't compile at offset " +
                           std::to_string(offset) + ": " + errorText(error));
  }
  // JIT is an optimisation; without it (an unsupported CPU) matching still works.
  pcre2_jit_compile(m_compiled->code, PCRE2_JIT_COMPLETE);
}

Regex::~Regex() = default;
Regex::Regex(Regex&&) noexcept = default;
Regex& Regex::operator=(Regex&&) noexcept = default;

std::optional<RegexMatch> Regex::run(std::string_view subject, size_t offset,
                                     bool anchoredWhole) const {
  if (offset > subject.size()) return std::nullopt;
  pcre2_match_data* data = t_matchData.forPattern(m_compiled->code);
  uint32_t flags = anchoredWhole ? (PCRE2_ANCHORED | PCRE2_ENDANCHORED) : 0;
  int rc = pcre2_match(m_compiled->code, reinterpret_cast<PCRE2_SPTR>(subject.data()),
                       subject.size(), offset, flags, data, nullptr);
  if (rc < 0) return std::nullopt;  // no match, or a matching limit hit: both mean "no"
  uint32_t groups = 0;
  pcre2_pattern_info(m_compiled->code, PCRE2_INFO_CAPTURECOUNT, &groups);
  PCRE2_SIZE* ovector = pcre2_get_ovector_pointer(data);
  RegexMatch match;
  match.m_subject = subject;
  match.m_regex = this;
  match.m_spans.reserve(groups + 1);
  for (uint32_t i = 0; i <= groups; ++i) {
    PCRE2_SIZE s = ovector[2 * i];
    PCRE2_SIZE e = ovector[2 * i + 1];
    if (static_cast<int>(i) >= rc || s == PCRE2_UNSET) {
      match.m_spans.emplace_back(std::string_view::npos, std::string_view::npos);
    } else {
      match.m_spans.emplace_back(s, e);
    }
  }
  return match;
}

std::optional<RegexMatch> Regex::search(std::string_view subject, size_t offset) const {
  return run(subject, offset, false);
}

std::optional<RegexMatch> Regex::fullMatch(std::string_view subject) const {
  return run(subject, 0, true);
}

std::vector<RegexMatch> Regex::searchAll(std::string_view subject) const {
  std::vector<RegexMatch> matches;
  size_t offset = 0;
  while (offset <= subject.size()) {
    auto m = run(subject, offset, false);
    if (!m) break;
    size_t next = m->end();
    if (next == m->start()) {
      // An empty match: step over one whole UTF-8 character so we never split one.
      next = m->start() + 1;
      while (next < subject.size() && (static_cast<unsigned char>(subject[next]) & 0xC0) == 0x80)
        ++next;
    }
    matches.push_back(std::move(*m));
    offset = next;
  }
  return matches;
}

std::string Regex::replaceAll(std::string_view subject, std::string_view replacement) const {
  std::string out;
  size_t last = 0;
  for (const RegexMatch& m : searchAll(subject)) {
    out.append(subject.substr(last, m.start() - last));
    for (size_t i = 0; i < replacement.size(); ++i) {
      char c = replacement[i];
      if (c == '$' && i + 1 < replacement.size()) {
        if (replacement[i + 1] == '{') {
          size_t close = replacement.find('}', i + 2);
          if (close != std::string_view::npos) {
            std::string_view name = replacement.substr(i + 2, close - i - 2);
            bool numeric = !name.empty() && name.find_first_not_of("0123456789") == std::string_view::npos;
            out.append(numeric ? m.group(static_cast<size_t>(std::stoul(std::string(name))))
                               : m.group(name));
            i = close;
            continue;
          }
        } else if (replacement[i + 1] >= '0' && replacement[i + 1] <= '9') {
          out.append(m.group(static_cast<size_t>(replacement[i + 1] - '0')));
          ++i;
          continue;
        } else if (replacement[i + 1] == '$') {
          out.push_back('$');
          ++i;
          continue;
        }
      }
      out.push_back(c);
    }
    last = m.end();
  }
  out.append(subject.substr(last));
  return out;
}

int Regex::groupNumber(std::string_view name) const {
  std::string n(name);
  return pcre2_substring_number_from_name(m_compiled->code, reinterpret_cast<PCRE2_SPTR>(n.c_str()));
}

std::string_view RegexMatch::group(size_t index) const {
  if (index >= m_spans.size() || m_spans[index].first == std::string_view::npos) return {};
  return m_subject.substr(m_spans[index].first, m_spans[index].second - m_spans[index].first);
}

std::string_view RegexMatch::group(std::string_view name) const {
  int number = m_regex ? m_regex->groupNumber(name) : -1;
  if (number < 0) return {};
  return group(static_cast<size_t>(number));
}

bool RegexMatch::hasGroup(size_t index) const {
  return index < m_spans.size() && m_spans[index].first != std::string_view::npos;
}

}  // namespace quillora::base
