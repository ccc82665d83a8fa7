#include "vxdicom/params/VxAnonymizeImageStack.h"

#include "platform/core/VxMessage.h"
#include "platform/data/VxField3.h"
#include "platform/data/VxParamBundle.h"

#include <strings.h>

VX_TYPE_INIT(VxAnonymizeImageStack, VxCompModule)

VxAnonymizeImageStack::VxAnonymizeImageStack() : portAction(this, "doIt", "Action:", 1)
{
    portData.addType<VxField3>();
    portAction.setLabel(0, "DoIt");
}

void VxAnonymizeImageStack::compute()
{
    if (!portAction.wasHit(0))
        return;
    auto *field = portData.source<VxField3>();
    if (!field)
        return;

    VxMessage *msg = VxMessage::getTheMsg();
    if (VxParamBundle *dicom = field->parameters().bundle("DICOM")) {
        if (VxParamBundle *all = dicom->bundle("All")) {
            for (int i = 0; i < all->size(); ++i) {
                const VxParamBase *entry = all->entry(i);
                if (entry->isBundle())
                    continue;
                const auto *p = static_cast<const VxParameter *>(entry);
                if (!p->isString() ||
                    strncasecmp(p->stringValue().c_str(), "patient name", 12) != 0)
                    continue;
                // Inserting with replace puts the new parameter in the old one's place.
                all->insert(new VxParameter(p->name().c_str(), "patient name: <Anonymized>"), true);
                msg->printf("anonymized patient name\n");
            }
        }

        int slices = 0;
        for (int b = 0; b < dicom->nBundles(); ++b) {
            VxParamBundle *slice = dicom->bundle(b);
            if (strncasecmp(slice->name().c_str(), "All", 3) == 0)
                continue;
            slice->remove("Filename");
            slice->remove("Name");
            ++slices;
        }
        if (slices > 0)
            msg->printf("anonymized %d single slices' bundles\n", slices);
    }

    field->setLabel("Anonymized");
    setResult(0, field);
}
