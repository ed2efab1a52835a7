pragma ComponentBehavior: Bound
import QtQuick
import Ostrel

// What can be done with a conversation, or with what lies below the pointer in it.
ActionMenu {
    id: root

    required property ConversationBridge bridge
    required property bool terminal  // it is what is shown

    signal findWanted
    signal renameWanted

    // `key` is that of the block below the pointer, `selected` what is marked in it; all may be empty.
    function openAt(x: real, y: real, key: string, selected: string, link: string) {
        const items = [];
        const add = (text, run, hint, checked) => items.push({
                text,
                run,
                hint,
                checked
            });
        if (bridge.requests.hasTerminalWindow) {
            add("Show terminal", () => bridge.requests.goToTerminal());
            items.push({});
        }
        const path = "path:";
        if (link.startsWith(path)) {
            add("Open file", () => bridge.openLink(link));
            add("Copy path", () => bridge.copy(link.slice(path.length)));
        } else if (link) {
            add("Open link", () => bridge.openLink(link));
            add("Copy link", () => bridge.copy(link));
        }
        if (selected)
            add("Copy", () => bridge.copy(selected), "Ctrl+C");
        if (key)
            add("Copy message", () => bridge.copyMessage(key));
        if (bridge.blocks.count > 0)
            add("Copy conversation", () => bridge.copyConversation());
        if (items.length > 0)
            items.push({});
        if (!terminal)
            add("Find in conversation", findWanted, "Ctrl+F");
        add("Rename agent", renameWanted, "F2");
        if (bridge.linkable)
            add("Link exact conversation", () => bridge.chooseConversation());
        if (bridge.linked)
            add("Unlink conversation", () => bridge.unlink());
        items.push({});
        add("Show background activity", () => bridge.showsActivity = !bridge.showsActivity, "", bridge.showsActivity);
        if (bridge.hasTerminal)
            add(terminal ? "Conversation history" : "View terminal output", () => bridge.showsTerminal = !terminal, "Ctrl+T");
        open(items, x, y);
    }

    objectName: "conversationMenu"
}
