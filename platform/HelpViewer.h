// The system's help viewer. Help of a user's own lies in the help folder of the XDG data folder
// ($XDG_DATA_HOME/help/C, else .local/share/help/C of the home), a folder for each book, where
// viewers of help: addresses look for it.
//
// Thread rule: any thread.
#pragma once

#include <string>

#include "vox/platform/Export.h"
#include "vox/platform/Service.h"

namespace vox {

class VOX_EXPORT HelpViewer : public Service<HelpViewer> {
 public:
  // RegisterBook makes the book, a folder at the absolute path `bundle`, known to the help viewer
  // under its leaf without extension ("/x/Guide.bundle" as help:Guide). Registering again is no
  // failure, also from another place. What the user keeps there under that name is left alone.
  // Returns: 0, or the errno of what failed; EEXIST when the name is the user's own.
  virtual int RegisterBook(const std::string& bundle) = 0;

 protected:
  ~HelpViewer() = default;
};

template <>
VOX_EXPORT Service<HelpViewer>::Where& Service<HelpViewer>::Place();

}  // namespace vox
