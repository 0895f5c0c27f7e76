<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="en" sourcelanguage="en">
<context>
    <name>Account</name>
    <message>
        <source>Login</source>
        <translation>Sign in</translation>
    </message>
    <message>
        <source>Email</source>
        <translation>Email</translation>
    </message>
    <message>
        <source>Password</source>
        <translation>Password</translation>
    </message>
    <message>
        <source>Logout</source>
        <translation>Sign out</translation>
    </message>
    <message>
        <source>Disconnected from server.</source>
        <translation>Not connected to the server.</translation>
    </message>
</context>
<context>
    <name>DialogCld</name>
    <message numerus="yes">
        <source> files are uploading to the cloud</source>
        <translation>
            <numerusform> file is being uploaded to the cloud</numerusform>
            <numerusform> files are being uploaded to the cloud</numerusform>
        </translation>
    </message>
    <message numerus="yes">
        <source> files are downloading from the cloud</source>
        <translation>
            <numerusform> file is being downloaded from the cloud</numerusform>
            <numerusform> files are being downloaded from the cloud</numerusform>
        </translation>
    </message>
    <message>
        <source>Velmora d.d.</source>
        <translation>Velmora d.d.</translation>
    </message>
    <message>
        <source>Orvel Storage</source>
        <translation>Orvel Storage</translation>
    </message>
    <message>
        <source>Run Orvel Storage at system startup.</source>
        <translation>Start Orvel Storage with the computer</translation>
    </message>
    <message>
        <source>Open Orvel Storage folder</source>
        <translation>Open the Orvel Storage folder</translation>
    </message>
    <message>
        <source>Open Orvel Storage web site</source>
        <translation>Open the Orvel Storage website</translation>
    </message>
    <message>
        <source>Stop sync</source>
        <translation>Pause syncing</translation>
    </message>
    <message>
        <source>Settings</source>
        <translation>Settings</translation>
    </message>
    <message>
        <source>Guide</source>
        <translation>Guide</translation>
    </message>
    <message>
        <source>Help</source>
        <translation>Help</translation>
    </message>
    <message>
        <source>Check for updates</source>
        <translation>Check for updates</translation>
    </message>
    <message>
        <source>Exit</source>
        <translation>Exit</translation>
    </message>
    <message>
        <source>Continue sync</source>
        <translation>Resume syncing</translation>
    </message>
    <message>
        <source>Pick Orvel Storage folder</source>
        <translation>Choose the Orvel Storage folder</translation>
    </message>
    <message>
        <source>Error</source>
        <translation>Error</translation>
    </message>
    <message>
        <source>The folder could not be moved:</source>
        <translation>The folder could not be moved:</translation>
    </message>
    <message>
        <source>Folder named</source>
        <translation>A folder named</translation>
    </message>
    <message>
        <source>already exists.</source>
        <translation>already exists.</translation>
    </message>
    <message>
        <source>Confirm</source>
        <translation>Done</translation>
    </message>
    <message>
        <source>free out of</source>
        <translation>free of</translation>
    </message>
    <message>
        <source>Change package</source>
        <translation>Change package</translation>
    </message>
    <message>
        <source>Login</source>
        <translation>Sign in</translation>
    </message>
    <message>
        <source>Login unsuccessful.</source>
        <translation>Signing in failed.</translation>
    </message>
    <message>
        <source>Disconnected from the cloud.</source>
        <translation>Not connected to the cloud.</translation>
    </message>
    <message>
        <source>account</source>
        <translation>account</translation>
    </message>
    <message>
        <source>Orvel Storage account</source>
        <translation>Orvel Storage account</translation>
    </message>
    <message>
        <source>Email:</source>
        <translation>Email:</translation>
    </message>
    <message>
        <source>Password:</source>
        <translation>Password:</translation>
    </message>
    <message>
        <source>Pick folder</source>
        <translation>Choose folder</translation>
    </message>
    <message>
        <source>Check for updates automatically</source>
        <translation>Check for updates automatically</translation>
    </message>
    <message>
        <source>Orvel Storage folder will be created at:</source>
        <translation>The Orvel Storage folder will be created at:</translation>
    </message>
    <message>
        <source>Orvel Storage is at:</source>
        <translation>The Orvel Storage folder is at:</translation>
    </message>
    <message>
        <source>time remaining %1 min</source>
        <translation>about %1 min left</translation>
    </message>
    <message>
        <source>Sync done</source>
        <translation>Everything is in sync</translation>
    </message>
    <message>
        <source>Internetna povezava je prekinjena</source>
        <translation>No connection to the cloud</translation>
    </message>
    <message>
        <source>/kesta/vse</source>
        <translation>/kesta/vse</translation>
    </message>
    <message>
        <source>/narocanje-kesta</source>
        <translation>/narocanje-kesta</translation>
    </message>
    <message>
        <source>/kesta/pomoc</source>
        <translation>/kesta/pomoc</translation>
    </message>
    <message>
        <source>/datoteke/vse</source>
        <translation>/datoteke/vse</translation>
    </message>
</context>
<context>
    <name>Guide</name>
    <message numerus="yes">
        <source>Step %n</source>
        <translation>
            <numerusform>Step %n</numerusform>
            <numerusform>Step %n</numerusform>
        </translation>
    </message>
    <message numerus="yes">
        <source>of %n</source>
        <translation>
            <numerusform>of %n</numerusform>
            <numerusform>of %n</numerusform>
        </translation>
    </message>
    <message>
        <source>Skip guide</source>
        <translation>Skip the guide</translation>
    </message>
    <message>
        <source>Next</source>
        <translation>Next</translation>
    </message>
    <message>
        <source>Back</source>
        <translation>Back</translation>
    </message>
    <message>
        <source>Orvel Storage is a special folder on your computer.....</source>
        <translation>Orvel Storage is a special folder on your computer. Whatever you put into it travels to the cloud by itself, and from there to all your other devices. You work with the files as in any other folder: open, change or delete them, and Orvel Storage keeps them the same everywhere.</translation>
    </message>
    <message>
        <source>There are three posible state of the destop app....</source>
        <translation>The icon in the taskbar tells you what is going on. A check mark: everything is in sync. Two arrows: files are being transferred; rest the mouse on the icon to see how many are left. A grey icon with a cross: there is no connection to the cloud. Don’t worry, your changes wait and travel once the connection is back.</translation>
    </message>
    <message>
        <source>Default setting for auto startup at login....</source>
        <translation>Orvel Storage starts together with your computer, so your files are always up to date. If you would rather not have that, clear the box “Start Orvel Storage with the computer” in the settings. You can then start the program yourself at any time.</translation>
    </message>
    <message>
        <source>Enjoy using ....</source>
        <translation>That’s all! Right-click the icon to open the menu, left-click it to open your folder. Enjoy Orvel Storage!</translation>
    </message>
    <message>
        <source>Welcome to Orvel Storage</source>
        <translation>Welcome to Orvel Storage</translation>
    </message>
    <message>
        <source>Skip Guide</source>
        <translation>Skip the guide</translation>
    </message>
    <message>
        <source>Close guide</source>
        <translation>Close the guide</translation>
    </message>
    <message>
        <source>:/guide%1.png</source>
        <translation>:/guide%1.png</translation>
    </message>
</context>
<context>
    <name>PickHomepath</name>
    <message>
        <source>Error</source>
        <translation>Error</translation>
    </message>
    <message>
        <source>Orvel Storage folder was not found. Was it moved/renamed or deleted?</source>
        <translation>The Orvel Storage folder was not found. Was it moved, renamed or deleted?</translation>
    </message>
    <message>
        <source>Moved/renamed:</source>
        <translation>Moved or renamed:</translation>
    </message>
    <message>
        <source>Find</source>
        <translation>Find</translation>
    </message>
    <message>
        <source>Deleted:</source>
        <translation>Deleted:</translation>
    </message>
    <message>
        <source>Restore</source>
        <translation>Restore</translation>
    </message>
    <message>
        <source>Pick Orvel Storage folder</source>
        <translation>Choose the Orvel Storage folder</translation>
    </message>
</context>
<context>
    <name>PickRacun</name>
    <message>
        <source>Pick accunt</source>
        <translation>Choose an account</translation>
    </message>
    <message>
        <source>Orvel Storage account</source>
        <translation>Orvel Storage account</translation>
    </message>
    <message>
        <source>Login</source>
        <translation>Sign in</translation>
    </message>
</context>
<context>
    <name>ShareFolder</name>
    <message>
        <source>Find</source>
        <translation>Share</translation>
    </message>
    <message>
        <source>Folder sharing</source>
        <translation>Share a folder</translation>
    </message>
    <message>
        <source>Email of user</source>
        <translation>User’s email</translation>
    </message>
    <message>
        <source>OK</source>
        <translation>OK</translation>
    </message>
    <message>
        <source>Path not found</source>
        <translation>The path was not found.</translation>
    </message>
    <message>
        <source>Only owner has the right to share folder with others</source>
        <translation>Only its owner can share a folder with others.</translation>
    </message>
    <message>
        <source>Folder above or below this one has already been shared</source>
        <translation>A folder above or below this one is already shared.</translation>
    </message>
    <message>
        <source>Server error. Please try later.</source>
        <translation>There was an error on the server. Please try again later.</translation>
    </message>
    <message>
        <source>User does not exist</source>
        <translation>There is no such user.</translation>
    </message>
    <message>
        <source>Sharing succeeded</source>
        <translation>The folder is now shared.</translation>
    </message>
</context>
<context>
    <name>UpdateDialog</name>
    <message>
        <source>Software Update</source>
        <translation>Software Update</translation>
    </message>
    <message>
        <source>Zgodovina sprememb:</source>
        <translation>What’s new:</translation>
    </message>
    <message>
        <source>Preskoči to verzijo</source>
        <translation>Skip this version</translation>
    </message>
    <message>
        <source>Opomni me kasneje</source>
        <translation>Remind me later</translation>
    </message>
    <message>
        <source>Namesti posodobitev</source>
        <translation>Install the update</translation>
    </message>
</context>
<context>
    <name>qtsparkle::UiController</name>
    <message>
        <source>Preverjam za posodobitve</source>
        <translation>Checking for updates</translation>
    </message>
    <message>
        <source>Preverjam za posodobitve %1...</source>
        <translation>Checking for updates to %1…</translation>
    </message>
    <message>
        <source>Novih različic ni na voljo</source>
        <translation>No new version is available</translation>
    </message>
    <message>
        <source>Nameščeno imaš najnovejšo različico </source>
        <translation>You have the latest version of </translation>
    </message>
    <message>
        <source>a.</source>
        <translation>.</translation>
    </message>
    <message>
        <source>Preverjanje za posodobitve ni uspelo</source>
        <translation>The check for updates failed</translation>
    </message>
</context>
<context>
    <name>qtsparkle::UpdateDialog</name>
    <message>
        <source>Nova različica %1e je na voljo</source>
        <translation>A new version of %1 is available</translation>
    </message>
    <message>
        <source>%1 %2 je na voljo - ti imaš %3. Želiš prenesti najnovejšo različico?</source>
        <translation>%1 %2 is available; you have %3. Would you like to download it?</translation>
    </message>
    <message>
        <source>Posodobitve ni mogoče namestiti</source>
        <translation>The update cannot be installed</translation>
    </message>
    <message>
        <source>Naslov posodobitve ne vodi na splet:</source>
        <translation>The address of the update does not lead to the web:</translation>
    </message>
</context>
<context>
    <name>qtsparkle::Updater</name>
    <message>
        <source>Check for updates automatically?</source>
        <translation>Check for updates automatically?</translation>
    </message>
    <message>
        <source>Should %1 automatically check for updates?  You can always check for updates manually from the menu.</source>
        <translation>Should %1 check for updates automatically? You can always check for them yourself from the menu.</translation>
    </message>
    <message>
        <source>Check automatically</source>
        <translation>Check automatically</translation>
    </message>
    <message>
        <source>Don&apos;t check</source>
        <translation>Don’t check</translation>
    </message>
</context>
</TS>
