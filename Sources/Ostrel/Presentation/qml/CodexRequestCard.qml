import QtQuick
import Ostrel

// Codex asks for a decision, for answers, or for a form to be filled in.
CardFrame {
    id: root

    required property CodexCardBridge card

    objectName: "codexRequestCard"
    light: 0
    request: card
    Accessible.role: Accessible.Grouping
    Accessible.name: card.heading
    partsSeen: detail.wholeSeen
    partsCut: detail.cut
    onPaged: detail.openAll()

    head: CardHeading {
        width: parent.width
        text: root.card.heading
        light: root.light
        symbol: QuestionSymbol {
            color: Theme.lights[0]
        }
    }

    Repeater {
        model: root.card.words

        CardText {
            required property string modelData

            width: root.partsWidth
            text: modelData
            color: Theme.secondary
        }
    }

    CodexRequestDetail {
        id: detail

        width: parent.width
        card: root.card
        visible: implicitHeight > 0
    }

    Column {
        width: parent.width
        visible: root.card.questions.length + root.card.fields.length > 0
        spacing: Theme.spacing
        enabled: !root.card.sent

        Repeater {
            model: root.card.questions

            QuestionSection {
                required property QuestionBridge modelData

                width: root.partsWidth
                question: modelData
            }
        }

        Repeater {
            model: root.card.fields

            FormField {
                required property FormFieldBridge modelData

                width: root.partsWidth
                field: modelData
            }
        }
    }

    CardText {
        objectName: "codexUnsupported"
        text: root.card.unsupported
        color: Theme.secondary
    }

    footer: [
        Flow {
            width: parent.width
            visible: implicitHeight > 0
            spacing: Theme.gap
            enabled: !root.card.sent

            PushButton {
                objectName: "codexOpenLink"
                visible: root.card.hasLink
                text: "Open secure step"
                prominent: !root.card.linkOpened
                onChosen: root.card.openLink()
            }

            PushButton {
                objectName: "codexLinkDone"
                visible: root.card.hasLink && root.card.linkOpened
                text: "I’ve completed this step"
                prominent: true
                onChosen: root.card.linkDone()
            }

            PushButton {
                objectName: "codexSubmit"
                visible: root.card.submitTitle !== ""
                text: root.card.submitTitle
                letter: root.takesKeys ? root.card.keyOf("submit") : ""
                prominent: true
                enabled: root.card.wholeSeen || !root.card.submitGrants
                onChosen: root.card.submit()
            }

            PushButton {
                objectName: "codexSkip"
                visible: root.card.skippable
                text: "Skip questions"
                onChosen: root.card.skip()
            }

            Repeater {
                model: root.card.choices

                PushButton {
                    required property int index
                    required property string key
                    required property string title
                    required property string shortcut
                    required property bool grants

                    objectName: "codexChoice" + index
                    width: Math.min(implicitWidth, root.partsWidth)
                    text: title
                    letter: root.takesKeys ? shortcut : ""
                    prominent: root.card.deciding && index === 0
                    enabled: root.card.wholeSeen || !grants
                    onChosen: root.card.choose(key)
                }
            }

            KeyHint {
                height: Theme.controlHeight
                visible: root.card.submitTitle !== "" && root.card.questions.length + root.card.fields.length > 0
                keys: "Ctrl+Return"
                meaning: "send all"
            }
        },
        CardText {
            objectName: "codexUnread"
            visible: !root.card.wholeSeen && !root.card.sent && (root.card.deciding || root.card.submitGrants)
            text: "Read it to its end before you allow it."
            color: Theme.secondary
            font.pixelSize: Theme.captionSize
        },
        CardText {
            objectName: "codexSent"
            visible: root.card.sent
            text: "Answer sent · waiting for Codex to confirm"
            color: Theme.secondary
            font.pixelSize: Theme.captionSize
        },
        CardText {
            objectName: "codexProblem"
            text: root.card.problem
            color: Theme.failure
            font.pixelSize: Theme.captionSize
            Accessible.role: Accessible.AlertMessage
        }
    ]
}
