#include "git/git_error.h"

#include "base/shell_error.h"

namespace quillora::git {

GitError::GitError(const std::string& message) : Error(message) {}

GitError::GitError(const std::string& label, int32_t status, const std::string& output)
    : Error(base::ShellError::failed(label, status, output).what()),
      m_label(label),
      m_status(status),
      m_output(output) {}

}  // namespace quillora::git
