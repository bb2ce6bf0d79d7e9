// Where a command's output goes (standard output or a file), with every
// write, flush and close checked: output that did not arrive is an error.
#ifndef ORU_TOOLS_OUTPUT_FILE_H
#define ORU_TOOLS_OUTPUT_FILE_H

#include <cstdio>
#include <string>

class OutputFile {
public:
    // `path` empty: standard output (written through `stdout_stream`).
    OutputFile(const std::string& path, FILE* stdout_stream);
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    bool opened() const { return m_file != nullptr; }
    // Writes and flushes: once this returns true, the text is with the system.
    bool write(const std::string& text);
    // Closes (or flushes standard output); true when all went well.
    bool close();
    // "cannot write NAME: REASON" for the first failure.
    const std::string& error() const { return m_error; }

private:
    bool fail(const char* what);
    std::string m_name;
    FILE* m_file;
    bool m_owned;
    std::string m_error;
};

#endif
