// The temporary-file-and-rename save. The temporary file is made with mkstemp in the target's
// folder, so that the final rename stays on one file system and replaces the target in one step.
#include "files/safe_save.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "base/message.h"
#include "base/text.h"

static void ShowPathMessage(const char16_t* text, const char16_t* path) {
  std::u16string message(text);
  message += u'\n';
  if (path) message += path;
  ShowMessage(message.c_str(), MessageError);
}

// Permissions for the new file: those of the file it replaces, else what a plain create would
// give under the process's umask.
static mode_t TargetMode(const std::string& target) {
  struct stat info;
  if (stat(target.c_str(), &info) == 0) return info.st_mode & 07777;
  mode_t mask = umask(0);
  umask(mask);
  return 0666 & ~mask;
}

int SaveFileSafely(const char16_t* path, SaveWriter write, void* context) {
  std::string target = TextToUtf8(path);
  if (target.empty()) {
    ShowPathMessage(u"Unable to open output file", path);
    return 0;
  }
  std::string temporary = target + ".tmp-XXXXXX";
  int descriptor = mkstemp(temporary.data());
  FILE* file = descriptor >= 0 ? fdopen(descriptor, "wb") : nullptr;
  if (!file) {
    if (descriptor >= 0) {
      close(descriptor);
      unlink(temporary.c_str());
    }
    ShowPathMessage(u"Unable to open output file", path);
    return 0;
  }
  fchmod(descriptor, TargetMode(target));
  int written = write(file, context);
  bool ioFailed =
      written && (std::ferror(file) || std::fflush(file) != 0 || fsync(descriptor) != 0);
  if (std::fclose(file) != 0) ioFailed = true;
  if (written && !ioFailed && std::rename(temporary.c_str(), target.c_str()) == 0) return 1;
  unlink(temporary.c_str());
  if (written) ShowPathMessage(u"Unable to write output file", path);
  return 0;
}
