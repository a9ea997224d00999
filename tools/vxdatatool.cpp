// vxdatatool: checks the readable data files and produces the compiled and
// encrypted ones that the server reads (etc/cdb, etc/vxpcp).
#include <cstdio>
#include <cstring>
#include <exception>
#include <string>

#include <vxbase/es.h>
#include <vxbase/fileutil.h>
#include <vxbase/platform.h>
#include <vxcore/aes.h>
#include <vxcore/constraint_db.h>
#include <vxcore/constraint_files.h>
#include <vxcore/xml_document.h>
#include <vxnet/vxp/command_db.h>

namespace {

constexpr const char* usage =
    "usage: vxdatatool build <rng-dir> <xml-dir> <command-file> <etc-dir>\n"
    "         validate the constraint files and the command file, write\n"
    "         <etc-dir>/cdb (compiled constraints) and <etc-dir>/vxpcp (commands),\n"
    "         both encrypted\n"
    "       vxdatatool encrypt <in> <out>\n"
    "       vxdatatool decrypt <in> <out>     (<out> \"-\": standard output)\n";

// Reads the constraint files as the server does with its readable files.
vxcore::constraint_db read_constraints(const std::string& rng_dir, const std::string& xml_dir) {
  vxcore::constraint_db db(0);
  vxcore::add_constraint_files(db, xml_dir, rng_dir + "/constraints.rng");
  return db;
}

void write_encrypted(const std::string& path, const std::string& plain) {
  std::string sealed;
  vxcore::encrypt_AES("", plain, sealed);
  vxbase::fileutil::set_file_content(path, sealed);
}

int build(const std::string& rng_dir, const std::string& xml_dir, const std::string& commands,
          const std::string& etc_dir) {
  const vxcore::constraint_db db = read_constraints(rng_dir, xml_dir);
  const std::string compiled = db.to_compiled();
  // The compiled text must read back to a database that compiles the same.
  if (vxcore::constraint_db(compiled).to_compiled() != compiled) {
    std::fprintf(stderr, "vxdatatool: the compiled database does not read back the same\n");
    return 1;
  }

  vxcore::xml::reader reader;
  vxcore::xml::read_document_file(reader, commands, vxcore::xml::rng_validation,
                                  rng_dir + "/commands.rng");
  vxnet::vxp::command_db cmds;
  cmds.read_commands(reader, db);

  write_encrypted(etc_dir + "/cdb", compiled);
  write_encrypted(etc_dir + "/vxpcp", vxbase::fileutil::get_file_content(commands));
  std::printf("vxdatatool: %zu constraints, %zu commands\n", db.entries().size(), cmds.size());
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    if (argc == 6 && std::strcmp(argv[1], "build") == 0) {
      return build(argv[2], argv[3], argv[4], argv[5]);
    }
    if (argc == 4 && std::strcmp(argv[1], "encrypt") == 0) {
      write_encrypted(argv[3], vxbase::fileutil::get_file_content(argv[2]));
      return 0;
    }
    if (argc == 4 && std::strcmp(argv[1], "decrypt") == 0) {
      std::string plain;
      vxcore::decrypt_AES("", vxbase::fileutil::get_file_content(argv[2]), plain);
      if (std::strcmp(argv[3], "-") == 0) {
        // The bytes of the file, on Windows too.
        vxbase::platform::binary_stream(stdout);
        std::fwrite(plain.data(), 1, plain.size(), stdout);
      } else {
        vxbase::fileutil::set_file_content(argv[3], plain);
      }
      return 0;
    }
    std::fputs(usage, stderr);
    return 2;
  } catch (const std::exception& e) {
    std::fprintf(stderr, "vxdatatool: %s\n", e.what());
    return 1;
  }
}
