// Where a command's output goes (standard output or a file), with every
// write, flush and close checked: output that did not arrive is an error.
#ifndef ORU_TOOLS_OUTPUT_FILE_H
#define ORU_TOOLS_OUTPUT_FILE_H

#include <cstdio>
#include <string>

// What happens to a file that exists: replaced, refused (a run never
// destroys data it was not told to), or added to.
enum class OutputMode { Replace, Refuse, Append };

class OutputFile {
public:
    // `path` empty: standard output (written through `stdout_stream`).
    OutputFile(const std::string& path, FILE* stdout_stream, OutputMode mode = OutputMode::Replace);
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    bool opened() const { return m_file != nullptr; }
    // Appending to a file that has content already.
    bool appending() const { return m_appending; }
    // For appending: whether the file begins with `header`, the text this
    // run would have written first (same columns, same settings).
    bool begins_with(const std::string& header) const;
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
    bool m_appending = false;
    std::string m_error;
};

#endif
