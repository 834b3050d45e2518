// StreamWriter is what writers have in common that put a page straight into its file: a page counts
// once it has ended, and the file appears with it.
#pragma once

#include <memory>
#include <utility>

#include "tools/vox/writers/ImageWriter.h"
#include "tools/vox/writers/OutputFile.h"

namespace vox::cli {

class StreamWriter : public ImageWriter {
 public:
  void EndPage() override { ended_ = true; }
  void DropPage() override {}
  void Finish() override {
    if (ended_) file_->Commit();
  }

 protected:
  explicit StreamWriter(std::unique_ptr<OutputFile> file) : file_(std::move(file)) {}
  OutputFile& File() { return *file_; }
  const OutputFile& File() const { return *file_; }
  bool HasPage() const { return ended_; }

 private:
  std::unique_ptr<OutputFile> file_;
  bool ended_ = false;
};

}  // namespace vox::cli
