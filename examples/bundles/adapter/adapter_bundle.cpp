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
        // The page lies in the resources of the bundle that described it.
        std::string page = Payload("page");
        base::FilePath pagePath = base::FilePath(GetResourcesPath()).AppendASCII(page);
        bool found = !page.empty() && base::PathExists(pagePath);
        return seen.openType + " " + seen.url + " (" + seen.modalSize + ", " + seen.modalPosition +
               ") for " + Payload("extensionId") + ", page " + page +
               (found ? " found" : " missing");
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
