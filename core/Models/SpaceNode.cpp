#include "Models/SpaceNode.hpp"

#include "Support/Json.hpp"

namespace unbulk {

SpaceNode SpaceNode::make(FileURL url, bool isDirectory) {
    SpaceNode node;
    node.id = Uuid::random();
    node.path = url.path();
    node.name = url.lastComponent();
    node.url = std::move(url);
    node.isDirectory = isDirectory;
    return node;
}

Json toJson(const SpaceNode& node, DateEncoding dates) {
    Json j = Json::object();
    j["id"] = node.id.string();
    j["url"] = node.url.absoluteString();
    j["path"] = node.path;
    j["name"] = node.name;
    j["isDirectory"] = node.isDirectory;
    j["allocatedSizeBytes"] = node.allocatedSizeBytes;
    j["logicalSizeBytes"] = node.logicalSizeBytes;
    j["itemCount"] = node.itemCount;
    const auto encode = [dates](Date date) { return dates::encode(date, dates); };
    json::setOptional(j, "lastAccessedDate", node.lastAccessedDate, encode);
    json::setOptional(j, "lastModifiedDate", node.lastModifiedDate, encode);
    if (node.children) {
        Json children = Json::array();
        for (const auto& child : *node.children)
            children.push_back(toJson(child, dates));
        j["children"] = std::move(children);
    }
    json::setOptional(j, "fileCategory", node.fileCategory);
    return j;
}

} // namespace unbulk
