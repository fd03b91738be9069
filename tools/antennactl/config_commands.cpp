// Configuration commands of antennactl: encrypt and decrypt configuration files with the
// service's key, and check a file by loading it exactly as the service would.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <new>
#include <random>
#include <string>
#include <vector>

#include "antennactl/commands.h"
#include "config/config_crypt.h"
#include "config/config_loader.h"
#include "config/config_report.h"
#include "platform/log.h"

#if !defined(_WIN32)
#include "platform/posix/posix_backends.h"
#include "platform/program_directory_files.h"
#endif

namespace antennactl {
namespace {

void config_usage() {
  std::fprintf(stderr,
               "usage: antennactl config encrypt PLAIN.ini OUT.bin\n"
               "       antennactl config decrypt CIPHER.bin OUT.ini\n"
               "       antennactl config check FILE --model NAME --switches N\n");
}

#if !defined(_WIN32)

// Reads a whole input file as the service reads its configuration: a directory cannot be
// read and a file beyond kMaxInputFileBytes is refused unread. False after saying why.
bool read_file(const std::string& path, std::vector<uint8_t>& data) {
  auto files = zaltor::platform::make_posix_file_system();
  if (files->check_input_file(path) == EFBIG) {
    std::fprintf(stderr, "antennactl: cannot read %s: larger than %llu bytes\n", path.c_str(),
                 static_cast<unsigned long long>(zaltor::platform::kMaxInputFileBytes));
    return false;
  }
  zaltor::platform::FileSystem::ReadStep step = zaltor::platform::FileSystem::ReadStep::kOpen;
  const int err = files->read_binary(path, data, step);
  if (err != 0) {
    std::fprintf(stderr, "antennactl: cannot read %s: %s\n", path.c_str(), std::strerror(err));
    return false;
  }
  return true;
}

bool write_file(const std::string& path, const std::vector<uint8_t>& data) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  if (!out) return false;
  out.write(reinterpret_cast<const char*>(data.data()), static_cast<std::streamsize>(data.size()));
  return static_cast<bool>(out);
}

// Plain configuration text holds no control characters other than tab, CR, LF and ^Z and is
// valid UTF-8; a ciphertext practically never is.
bool looks_like_text(const std::vector<uint8_t>& data) {
  size_t i = 0;
  while (i < data.size()) {
    const uint8_t b = data[i];
    if (b < 0x20 && b != '\t' && b != '\r' && b != '\n' && b != 0x1a) return false;
    if (b == 0x7f) return false;
    size_t extra = 0;
    if (b >= 0xF0 && b < 0xF5) {
      extra = 3;
    } else if (b >= 0xE0 && b < 0xF0) {
      extra = 2;
    } else if (b >= 0xC2 && b < 0xE0) {
      extra = 1;
    } else if (b >= 0x80) {
      return false;
    }
    for (size_t k = 1; k <= extra; ++k) {
      if (i + k >= data.size() || (data[i + k] & 0xC0) != 0x80) return false;
    }
    i += extra + 1;
  }
  return true;
}

class StdoutConsole final : public zaltor::Console {
 public:
  void write(std::string_view text) override { std::fwrite(text.data(), 1, text.size(), stdout); }
};

class StderrConsole final : public zaltor::Console {
 public:
  void write(std::string_view text) override { std::fwrite(text.data(), 1, text.size(), stderr); }
};

// Log lines as the service echoes them in console mode: "LEVEL: text".
class PrintingLog final : public zaltor::Log {
 public:
  void vwrite(uint8_t level, const char* fmt, va_list ap) override {
    const std::string text = zaltor::vformat(fmt, ap);
    std::printf("%u: %s", static_cast<unsigned>(level), text.c_str());
  }
};

int encrypt_command(const std::string& in_path, const std::string& out_path) {
  std::vector<uint8_t> plain;
  if (!read_file(in_path, plain)) return kExitRefused;
  auto crypto = zaltor::platform::make_openssl_crypto();
  std::vector<uint8_t> cipher;
  const uint32_t st = zaltor::config::encrypt_config_bytes(*crypto, plain, cipher);
  if (st != 0) {
    std::fprintf(stderr, "antennactl: encryption failed with 0x%x\n", st);
    return kExitRefused;
  }
  if (!write_file(out_path, cipher)) {
    std::fprintf(stderr, "antennactl: cannot write %s\n", out_path.c_str());
    return kExitRefused;
  }
  return kExitDone;
}

int decrypt_command(const std::string& in_path, const std::string& out_path) {
  std::vector<uint8_t> cipher;
  if (!read_file(in_path, cipher)) return kExitRefused;
  auto crypto = zaltor::platform::make_openssl_crypto();
  StderrConsole console;
  std::vector<uint8_t> plain;
  if (!zaltor::config::decrypt_config_bytes(*crypto, console, cipher, plain)) {
    std::fprintf(stderr, "antennactl: %s is not a configuration encrypted with this build's key\n",
                 in_path.c_str());
    return kExitRefused;
  }
  if (!write_file(out_path, plain)) {
    std::fprintf(stderr, "antennactl: cannot write %s\n", out_path.c_str());
    return kExitRefused;
  }
  return kExitDone;
}

std::filesystem::path make_scratch_directory() {
  std::random_device rd;
  const auto base = std::filesystem::temp_directory_path();
  for (int attempt = 0; attempt < 100; ++attempt) {
    const auto dir = base / ("antennactl-check-" + std::to_string(rd()));
    std::error_code ec;
    if (std::filesystem::create_directory(dir, ec)) return dir;
  }
  return {};
}

int check_command(const std::string& path, const std::string& model, int switches) {
  std::vector<uint8_t> data;
  if (!read_file(path, data)) return kExitRefused;
  const bool plain = looks_like_text(data);
  const std::filesystem::path dir = make_scratch_directory();
  if (dir.empty()) {
    std::fprintf(stderr, "antennactl: cannot create a scratch directory\n");
    return kExitRefused;
  }
  const char* name = plain ? zaltor::config::kPlainFileName : zaltor::config::kCipherFileName;
  std::printf("Checking %s as %s configuration for model %s with %d switches\n", path.c_str(),
              plain ? "a plain" : "an encrypted", model.c_str(), switches);
  int exit_code = kExitRefused;
  if (!write_file((dir / name).string(), data)) {
    std::fprintf(stderr, "antennactl: cannot write the scratch copy of %s\n", path.c_str());
  } else {
    auto real_files = zaltor::platform::make_posix_file_system();
    zaltor::platform::ProgramDirectoryFiles files(*real_files, dir.string());
    auto profiles = zaltor::platform::make_ini_profile_reader();
    auto crypto = zaltor::platform::make_openssl_crypto();
    PrintingLog log;
    StdoutConsole console;
    zaltor::config::LoadContext ctx;
    ctx.files = &files;
    ctx.profiles = profiles.get();
    ctx.crypto = crypto.get();
    ctx.log = &log;
    ctx.console = &console;
    zaltor::config::Configuration cfg;
    const zaltor::Status st = zaltor::config::load_configuration(ctx, model, switches, cfg);
    if (st == zaltor::SWITCH_OK) {
      zaltor::config::write_config_report(log, cfg, 1u << switches, switches);
      std::printf("Configuration accepted (result 0)\n");
      exit_code = kExitDone;
    } else {
      std::printf("Configuration refused (result %u)\n", static_cast<unsigned>(st));
    }
  }
  std::error_code ec;
  std::filesystem::remove_all(dir, ec);
  return exit_code;
}

#endif

int run_config_command_unguarded(int argc, char** argv) {
  if (argc < 2) {
    config_usage();
    return kExitUsage;
  }
  const std::string verb = argv[1];
#if defined(_WIN32)
  std::fprintf(stderr, "antennactl: the config commands are not available in this build yet\n");
  return kExitUsage;
#else
  if ((verb == "encrypt" || verb == "decrypt") && argc == 4) {
    return verb == "encrypt" ? encrypt_command(argv[2], argv[3])
                             : decrypt_command(argv[2], argv[3]);
  }
  if (verb == "check" && argc >= 3) {
    std::string model;
    std::string switches_text;
    bool have_model = false;
    bool have_switches = false;
    for (int i = 3; i < argc; ++i) {
      const std::string arg = argv[i];
      if (arg == "--model" && i + 1 < argc) {
        model = argv[++i];
        have_model = true;
      } else if (arg == "--switches" && i + 1 < argc) {
        switches_text = argv[++i];
        have_switches = true;
      } else {
        config_usage();
        return kExitUsage;
      }
    }
    char* end = nullptr;
    const long switches = have_switches ? std::strtol(switches_text.c_str(), &end, 10) : -1;
    if (!have_model || !have_switches || end == nullptr || *end != '\0' || switches < 0 ||
        switches > 4) {
      std::fprintf(stderr, "antennactl: check needs --model NAME and --switches 0..4\n");
      config_usage();
      return kExitUsage;
    }
    return check_command(argv[2], model, static_cast<int>(switches));
  }
  config_usage();
  return kExitUsage;
#endif
}

}  // namespace

int run_config_command(int argc, char** argv) {
  // Every refusal is a message and exit code 1, also one the commands did not foresee.
  try {
    return run_config_command_unguarded(argc, argv);
  } catch (const std::bad_alloc&) {
    std::fprintf(stderr, "antennactl: out of memory\n");
  } catch (const std::exception& e) {
    std::fprintf(stderr, "antennactl: %s\n", e.what());
  }
  return kExitRefused;
}

}  // namespace antennactl
