// The adapter bundle's library: a web container for panels that other
// bundles describe in their manifests without code of their own. The kit
// gives it a derived record for each such panel, carrying the panel's
// payloads, settings and resources folder.

#include <string>
#include <vector>

#include "base/files/file_path.h"
#include "base/files/file_util.h"
#include "component/plugin.h"
#include "demo_extension.h"
#include "manager/extension_object.h"

namespace {

class WebPanelHost : public DemoExtension<IWebPanel> {
public:
    std::string Open() override {
        const DemoContextView& seen = Seen();
        // The page lies in the resources of the bundle that described it;
        // the container's own frame beside the container's library.
        std::string page = Payload("page");
        bool pageFound =
            !page.empty() && base::PathExists(base::FilePath(GetResourcesPath()).AppendASCII(page));
        bool frameFound = base::PathExists(base::FilePath(GetBinDirPath())
                                               .Append(L"..")
                                               .Append(L"resources")
                                               .Append(L"container.html"));
        return seen.openType + " " + seen.url + " for " + Payload("extensionId") + ": page " +
               page + (pageFound ? " found" : " missing") + ", container.html " +
               (frameFound ? "found" : "missing");
    }

protected:
    std::vector<std::string> PayloadKeys() const override {
        // "extensionId" marks a derived record and names the panel's own id.
        return {"extensionId", "title", "page"};
    }
    std::vector<std::string> ConstraintKeys() const override { return {"role"}; }
};

}  // namespace

BY_PLUGIN_MODULE(QZE_PLUGIN_EXTENSION_CLASS(DEMO_WEB_PANEL_HOST_CLSID, WebPanelHost, IWebPanel))
