// Where the files of a lab run lie on the machine, and the programs that run in it.
#ifndef LAB_WORKDIRECTORY_H
#define LAB_WORKDIRECTORY_H

#include <string>

namespace lab {

// The parts of a terminal: directories below one work directory, made when absent.
class WorkDirectory {
  public:
    // Throws std::runtime_error when a directory cannot be made.
    explicit WorkDirectory(std::string path);

    const std::string& path() const { return mPath; }
    std::string file(const std::string& name) const { return mPath + "/" + name; }

    std::string downloads() const { return file("fw"); }  // is /data/fw
    std::string temporary() const { return file("tmp"); } // is /tmp
    std::string run() const { return file("run"); }       // is /var/run
    std::string database() const { return file("db"); }   // is /lab/db
    std::string web() const { return file("web"); }       // is /lab/web
    std::string log(const std::string& program) const { return file(program + ".log"); }

    // The same file as a program in the terminal and as the machine names it; empty for one that is in none
    // of these directories.
    std::string onMachine(const std::string& inTerminal) const;

  private:
    const std::string mPath;
};

// The programs of this build, found beside the running one, else where programs are installed.
struct Programs {
    std::string daemon;  // fw_download
    std::string lab;     // fw_lab, which is also the terminal's first process
    std::string library; // libvex.so in use by this process

    // Throws std::runtime_error naming what is missing.
    static Programs find();
};

} // namespace lab

#endif
