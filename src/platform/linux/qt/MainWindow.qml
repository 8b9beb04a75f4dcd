import QtQuick

Rectangle {
    id: window

    property bool userInterfaceConnected: false

    color: "#1c1e26"

    Column {
        anchors.centerIn: parent
        spacing: 14

        Text {
            anchors.horizontalCenter: parent.horizontalCenter
            text: "Quillbeam"
            color: "#f2f3f7"
            font.pixelSize: 30
            font.weight: Font.DemiBold
        }

        Row {
            anchors.horizontalCenter: parent.horizontalCenter
            spacing: 9

            Rectangle {
                anchors.verticalCenter: parent.verticalCenter
                width: 10
                height: 10
                radius: 5
                color: window.userInterfaceConnected ? "#4cc38a" : "#8d93a5"
            }

            Text {
                text: window.userInterfaceConnected ? "A user interface is connected" : "Waiting for a user interface"
                color: "#c3c7d4"
                font.pixelSize: 15
            }
        }
    }
}
