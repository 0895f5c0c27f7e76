<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="sl" sourcelanguage="en">
<context>
    <name>Account</name>
    <message>
        <source>Login</source>
        <translation>Prijava</translation>
    </message>
    <message>
        <source>Email</source>
        <translation>E-pošta</translation>
    </message>
    <message>
        <source>Password</source>
        <translation>Geslo</translation>
    </message>
    <message>
        <source>Logout</source>
        <translation>Odjava</translation>
    </message>
    <message>
        <source>Disconnected from server.</source>
        <translation>Ni povezave s strežnikom.</translation>
    </message>
</context>
<context>
    <name>DialogCld</name>
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
        <translation>Zaženi Orvel Storage ob zagonu računalnika.</translation>
    </message>
    <message>
        <source>Open Orvel Storage folder</source>
        <translation>Odpri mapo Orvel Storage</translation>
    </message>
    <message>
        <source>Open Orvel Storage web site</source>
        <translation>Odpri spletno stran Orvel Storage</translation>
    </message>
    <message>
        <source>Stop sync</source>
        <translation>Ustavi sinhronizacijo</translation>
    </message>
    <message>
        <source>Settings</source>
        <translation>Nastavitve</translation>
    </message>
    <message>
        <source>Guide</source>
        <translation>Vodnik</translation>
    </message>
    <message>
        <source>Help</source>
        <translation>Pomoč</translation>
    </message>
    <message>
        <source>Check for updates</source>
        <translation>Preveri posodobitve</translation>
    </message>
    <message>
        <source>Exit</source>
        <translation>Izhod</translation>
    </message>
    <message>
        <source>Continue sync</source>
        <translation>Nadaljuj sinhronizacijo</translation>
    </message>
    <message>
        <source>Pick Orvel Storage folder</source>
        <translation>Izberi mapo Orvel Storage</translation>
    </message>
    <message>
        <source>Error</source>
        <translation>Napaka</translation>
    </message>
    <message>
        <source>The folder could not be moved:</source>
        <translation>Mape ni bilo mogoče premakniti:</translation>
    </message>
    <message>
        <source>Folder named</source>
        <translation>Mapa z imenom</translation>
    </message>
    <message>
        <source>already exists.</source>
        <translation>že obstaja.</translation>
    </message>
    <message>
        <source>Confirm</source>
        <translation>Potrdi</translation>
    </message>
    <message>
        <source>free out of</source>
        <translation>prosto od</translation>
    </message>
    <message>
        <source>Change package</source>
        <translation>Zamenjaj paket</translation>
    </message>
    <message>
        <source>Login</source>
        <translation>Prijava</translation>
    </message>
    <message>
        <source>Login unsuccessful.</source>
        <translation>Prijava ni uspela.</translation>
    </message>
    <message>
        <source>Disconnected from the cloud.</source>
        <translation>Ni povezave z oblakom.</translation>
    </message>
    <message>
        <source>account</source>
        <translation>račun</translation>
    </message>
    <message>
        <source>Orvel Storage account</source>
        <translation>Račun Orvel Storage</translation>
    </message>
    <message>
        <source>Email:</source>
        <translation>E-pošta:</translation>
    </message>
    <message>
        <source>Password:</source>
        <translation>Geslo:</translation>
    </message>
    <message>
        <source>Pick folder</source>
        <translation>Izberi mapo</translation>
    </message>
    <message>
        <source>Check for updates automatically</source>
        <translation>Samodejno preverjaj posodobitve</translation>
    </message>
    <message>
        <source>Orvel Storage folder will be created at:</source>
        <translation>Mapa Orvel Storage bo ustvarjena tu:</translation>
    </message>
    <message>
        <source>Orvel Storage is at:</source>
        <translation>Mapa Orvel Storage je tu:</translation>
    </message>
    <message numerus="yes">
        <source> files are uploading to the cloud</source>
        <translation>
            <numerusform> datoteka se prenaša v oblak</numerusform>
            <numerusform> datoteki se prenašata v oblak</numerusform>
            <numerusform> datoteke se prenašajo v oblak</numerusform>
            <numerusform> datotek se prenaša v oblak</numerusform>
        </translation>
    </message>
    <message numerus="yes">
        <source> files are downloading from the cloud</source>
        <translation>
            <numerusform> datoteka se prenaša iz oblaka</numerusform>
            <numerusform> datoteki se prenašata iz oblaka</numerusform>
            <numerusform> datoteke se prenašajo iz oblaka</numerusform>
            <numerusform> datotek se prenaša iz oblaka</numerusform>
        </translation>
    </message>
    <message>
        <source>time remaining %1 min</source>
        <translation>še približno %1 min</translation>
    </message>
    <message>
        <source>Sync done</source>
        <translation>Vse je usklajeno</translation>
    </message>
    <message>
        <source>Internetna povezava je prekinjena</source>
        <translation>Internetna povezava je prekinjena</translation>
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
    <message>
        <source>Skip guide</source>
        <translation>Preskoči vodnik</translation>
    </message>
    <message>
        <source>Next</source>
        <translation>Naprej</translation>
    </message>
    <message>
        <source>Back</source>
        <translation>Nazaj</translation>
    </message>
    <message>
        <source>Orvel Storage is a special folder on your computer.....</source>
        <translation>Orvel Storage je posebna mapa na vašem računalniku. Kar shranite vanjo, se samo prenese v oblak in od tam na vse vaše druge naprave. Z datotekami delate tako kot v vsaki drugi mapi: odpirate jih, spreminjate in brišete, Orvel Storage pa poskrbi, da so povsod enake.</translation>
    </message>
    <message>
        <source>There are three posible state of the destop app....</source>
        <translation>Ikona v opravilni vrstici vam pove, kaj se dogaja. Kljukica: vse je usklajeno. Puščici: datoteke se ravno prenašajo; koliko jih še čaka, izveste, če se z miško ustavite na ikoni. Siva ikona s križcem: z oblakom ni povezave. Brez skrbi, spremembe vas počakajo in se prenesejo, ko bo povezava spet vzpostavljena.</translation>
    </message>
    <message>
        <source>Default setting for auto startup at login....</source>
        <translation>Orvel Storage se zažene skupaj z računalnikom, zato so vaše datoteke vedno sveže. Če tega ne želite, v nastavitvah odstranite kljukico pri »Zaženi Orvel Storage ob zagonu računalnika.« Program lahko potem kadarkoli zaženete sami.</translation>
    </message>
    <message>
        <source>Enjoy using ....</source>
        <translation>To je vse! Z desnim klikom na ikono odprete meni, z levim pa svojo mapo. Veliko veselja z Orvel Storage!</translation>
    </message>
    <message>
        <source>Welcome to Orvel Storage</source>
        <translation>Dobrodošli v Orvel Storage</translation>
    </message>
    <message numerus="yes">
        <source>Step %n</source>
        <translation>
            <numerusform>Korak %n</numerusform>
            <numerusform>Korak %n</numerusform>
            <numerusform>Korak %n</numerusform>
            <numerusform>Korak %n</numerusform>
        </translation>
    </message>
    <message numerus="yes">
        <source>of %n</source>
        <translation>
            <numerusform>od %n</numerusform>
            <numerusform>od %n</numerusform>
            <numerusform>od %n</numerusform>
            <numerusform>od %n</numerusform>
        </translation>
    </message>
    <message>
        <source>Skip Guide</source>
        <translation>Preskoči vodnik</translation>
    </message>
    <message>
        <source>Close guide</source>
        <translation>Zapri vodnik</translation>
    </message>
    <message>
        <source>:/guide%1.png</source>
        <translation>:/guide%1-sl.png</translation>
    </message>
</context>
<context>
    <name>PickHomepath</name>
    <message>
        <source>Error</source>
        <translation>Napaka</translation>
    </message>
    <message>
        <source>Orvel Storage folder was not found. Was it moved/renamed or deleted?</source>
        <translation>Mape Orvel Storage ni mogoče najti. Ste jo premaknili, preimenovali ali izbrisali?</translation>
    </message>
    <message>
        <source>Moved/renamed:</source>
        <translation>Premaknjena ali preimenovana:</translation>
    </message>
    <message>
        <source>Find</source>
        <translation>Poišči</translation>
    </message>
    <message>
        <source>Deleted:</source>
        <translation>Izbrisana:</translation>
    </message>
    <message>
        <source>Restore</source>
        <translation>Obnovi</translation>
    </message>
    <message>
        <source>Pick Orvel Storage folder</source>
        <translation>Izberi mapo Orvel Storage</translation>
    </message>
</context>
<context>
    <name>PickRacun</name>
    <message>
        <source>Pick accunt</source>
        <translation>Izberite račun</translation>
    </message>
    <message>
        <source>Orvel Storage account</source>
        <translation>Račun Orvel Storage</translation>
    </message>
    <message>
        <source>Login</source>
        <translation>Prijava</translation>
    </message>
</context>
<context>
    <name>QFileDialog</name>
    <message>
        <source>Look in:</source>
        <translation>Poišči v:</translation>
    </message>
    <message>
        <source>Directory:</source>
        <translation>Mapa:</translation>
    </message>
    <message>
        <source>Files of type:</source>
        <translation>Vrsta:</translation>
    </message>
    <message>
        <source>Directories</source>
        <translation>Mape</translation>
    </message>
    <message>
        <source>&amp;Choose</source>
        <translation>&amp;Izberi</translation>
    </message>
    <message>
        <source>&amp;Open</source>
        <translation>&amp;Odpri</translation>
    </message>
    <message>
        <source>Back</source>
        <translation>Nazaj</translation>
    </message>
    <message>
        <source>Go back</source>
        <translation>Pojdi nazaj</translation>
    </message>
    <message>
        <source>Forward</source>
        <translation>Naprej</translation>
    </message>
    <message>
        <source>Go forward</source>
        <translation>Pojdi naprej</translation>
    </message>
    <message>
        <source>Parent Directory</source>
        <translation>Nadrejena mapa</translation>
    </message>
    <message>
        <source>Go to the parent directory</source>
        <translation>Pojdi v nadrejeno mapo</translation>
    </message>
    <message>
        <source>Create New Folder</source>
        <translation>Nova mapa</translation>
    </message>
    <message>
        <source>Create a New Folder</source>
        <translation>Ustvari novo mapo</translation>
    </message>
    <message>
        <source>List View</source>
        <translation>Seznam</translation>
    </message>
    <message>
        <source>Change to list view mode</source>
        <translation>Prikaži kot seznam</translation>
    </message>
    <message>
        <source>Detail View</source>
        <translation>Podrobnosti</translation>
    </message>
    <message>
        <source>Change to detail view mode</source>
        <translation>Prikaži podrobnosti</translation>
    </message>
    <message>
        <source>Sidebar</source>
        <translation>Stranska vrstica</translation>
    </message>
    <message>
        <source>List of places and bookmarks</source>
        <translation>Seznam mest in zaznamkov</translation>
    </message>
    <message>
        <source>Recent Places</source>
        <translation>Nedavna mesta</translation>
    </message>
    <message>
        <source>Remove</source>
        <translation>Odstrani</translation>
    </message>
    <message>
        <source>&amp;Rename</source>
        <translation>&amp;Preimenuj</translation>
    </message>
    <message>
        <source>&amp;Delete</source>
        <translation>I&amp;zbriši</translation>
    </message>
    <message>
        <source>Show &amp;hidden files</source>
        <translation>Prikaži &amp;skrite datoteke</translation>
    </message>
    <message>
        <source>&amp;New Folder</source>
        <translation>&amp;Nova mapa</translation>
    </message>
    <message>
        <source>New Folder</source>
        <translation>Nova mapa</translation>
    </message>
    <message>
        <source>Delete</source>
        <translation>Izbriši</translation>
    </message>
    <message>
        <source>Are you sure you want to delete &apos;%1&apos;?</source>
        <translation>Ali res želite izbrisati »%1«?</translation>
    </message>
    <message>
        <source>&apos;%1&apos; is write protected.
Do you want to delete it anyway?</source>
        <translation>»%1« je zaščiteno pred pisanjem.
Ali ga želite vseeno izbrisati?</translation>
    </message>
    <message>
        <source>Could not delete directory.</source>
        <translation>Mape ni mogoče izbrisati.</translation>
    </message>
    <message>
        <source>%1
Directory not found.
Please verify the correct directory name was given.</source>
        <translation>%1
Te mape ni mogoče najti.
Preverite, ali je ime pravilno.</translation>
    </message>
    <message>
        <source>Drive</source>
        <translation>Pogon</translation>
    </message>
    <message>
        <source>Folder</source>
        <translation>Mapa</translation>
    </message>
    <message>
        <source>File Folder</source>
        <translation>Mapa</translation>
    </message>
    <message>
        <source>My Computer</source>
        <translation>Računalnik</translation>
    </message>
</context>
<context>
    <name>QFileSystemModel</name>
    <message>
        <source>Name</source>
        <translation>Ime</translation>
    </message>
    <message>
        <source>Size</source>
        <translation>Velikost</translation>
    </message>
    <message>
        <source>Type</source>
        <translation>Vrsta</translation>
    </message>
    <message>
        <source>Date Modified</source>
        <translation>Spremenjeno</translation>
    </message>
    <message>
        <source>Computer</source>
        <translation>Računalnik</translation>
    </message>
    <message>
        <source>My Computer</source>
        <translation>Računalnik</translation>
    </message>
    <message>
        <source>Invalid filename</source>
        <translation>Neveljavno ime</translation>
    </message>
    <message>
        <source>&lt;b&gt;The name &quot;%1&quot; cannot be used.&lt;/b&gt;&lt;p&gt;Try using another name, with fewer characters or no punctuation marks.</source>
        <translation>&lt;b&gt;Imena »%1« ni mogoče uporabiti.&lt;/b&gt;&lt;p&gt;Poskusite z drugim, krajšim ali brez ločil.</translation>
    </message>
</context>
<context>
    <name>QGnomeTheme</name>
    <message>
        <source>&amp;OK</source>
        <translation>V &amp;redu</translation>
    </message>
    <message>
        <source>&amp;Cancel</source>
        <translation>&amp;Prekliči</translation>
    </message>
    <message>
        <source>&amp;Close</source>
        <translation>&amp;Zapri</translation>
    </message>
</context>
<context>
    <name>QLineEdit</name>
    <message>
        <source>&amp;Undo</source>
        <translation>&amp;Razveljavi</translation>
    </message>
    <message>
        <source>&amp;Redo</source>
        <translation>&amp;Uveljavi</translation>
    </message>
    <message>
        <source>Cu&amp;t</source>
        <translation>&amp;Izreži</translation>
    </message>
    <message>
        <source>&amp;Copy</source>
        <translation>&amp;Kopiraj</translation>
    </message>
    <message>
        <source>&amp;Paste</source>
        <translation>&amp;Prilepi</translation>
    </message>
    <message>
        <source>Delete</source>
        <translation>Izbriši</translation>
    </message>
    <message>
        <source>Select All</source>
        <translation>Izberi vse</translation>
    </message>
</context>
<context>
    <name>QPlatformTheme</name>
    <message>
        <source>OK</source>
        <translation>V redu</translation>
    </message>
    <message>
        <source>Cancel</source>
        <translation>Prekliči</translation>
    </message>
    <message>
        <source>Close</source>
        <translation>Zapri</translation>
    </message>
    <message>
        <source>&amp;Yes</source>
        <translation>&amp;Da</translation>
    </message>
    <message>
        <source>&amp;No</source>
        <translation>&amp;Ne</translation>
    </message>
</context>
<context>
    <name>QScrollBar</name>
    <message>
        <source>Scroll here</source>
        <translation>Pomakni sem</translation>
    </message>
    <message>
        <source>Top</source>
        <translation>Na vrh</translation>
    </message>
    <message>
        <source>Bottom</source>
        <translation>Na dno</translation>
    </message>
    <message>
        <source>Page up</source>
        <translation>Stran gor</translation>
    </message>
    <message>
        <source>Page down</source>
        <translation>Stran dol</translation>
    </message>
    <message>
        <source>Scroll up</source>
        <translation>Pomakni gor</translation>
    </message>
    <message>
        <source>Scroll down</source>
        <translation>Pomakni dol</translation>
    </message>
    <message>
        <source>Left edge</source>
        <translation>Na levi rob</translation>
    </message>
    <message>
        <source>Right edge</source>
        <translation>Na desni rob</translation>
    </message>
    <message>
        <source>Page left</source>
        <translation>Stran levo</translation>
    </message>
    <message>
        <source>Page right</source>
        <translation>Stran desno</translation>
    </message>
    <message>
        <source>Scroll left</source>
        <translation>Pomakni levo</translation>
    </message>
    <message>
        <source>Scroll right</source>
        <translation>Pomakni desno</translation>
    </message>
</context>
<context>
    <name>QWidgetTextControl</name>
    <message>
        <source>&amp;Copy</source>
        <translation>&amp;Kopiraj</translation>
    </message>
    <message>
        <source>Copy &amp;Link Location</source>
        <translation>Kopiraj &amp;naslov povezave</translation>
    </message>
    <message>
        <source>Select All</source>
        <translation>Izberi vse</translation>
    </message>
</context>
<context>
    <name>ShareFolder</name>
    <message>
        <source>Find</source>
        <translation>Poišči</translation>
    </message>
    <message>
        <source>Folder sharing</source>
        <translation>Deljenje mape</translation>
    </message>
    <message>
        <source>Email of user</source>
        <translation>E-pošta uporabnika</translation>
    </message>
    <message>
        <source>OK</source>
        <translation>V redu</translation>
    </message>
    <message>
        <source>Path not found</source>
        <translation>Te poti ni mogoče najti</translation>
    </message>
    <message>
        <source>Only owner has the right to share folder with others</source>
        <translation>Mapo lahko deli samo njen lastnik</translation>
    </message>
    <message>
        <source>Folder above or below this one has already been shared</source>
        <translation>Mapa nad to ali pod njo je že v skupni rabi</translation>
    </message>
    <message>
        <source>Server error. Please try later.</source>
        <translation>Napaka na strežniku. Poskusite znova pozneje.</translation>
    </message>
    <message>
        <source>User does not exist</source>
        <translation>Tega uporabnika ni</translation>
    </message>
    <message>
        <source>Sharing succeeded</source>
        <translation>Mapa je zdaj v skupni rabi</translation>
    </message>
</context>
<context>
    <name>UpdateDialog</name>
    <message>
        <source>Software Update</source>
        <translation>Posodobitev programa</translation>
    </message>
    <message>
        <source>Zgodovina sprememb:</source>
        <translation>Zgodovina sprememb:</translation>
    </message>
    <message>
        <source>Preskoči to verzijo</source>
        <translation>Preskoči to verzijo</translation>
    </message>
    <message>
        <source>Opomni me kasneje</source>
        <translation>Opomni me kasneje</translation>
    </message>
    <message>
        <source>Namesti posodobitev</source>
        <translation>Namesti posodobitev</translation>
    </message>
</context>
<context>
    <name>qtsparkle::UiController</name>
    <message>
        <source>Preverjam za posodobitve</source>
        <translation>Preverjam za posodobitve</translation>
    </message>
    <message>
        <source>Preverjam za posodobitve %1...</source>
        <translation>Preverjam za posodobitve %1...</translation>
    </message>
    <message>
        <source>Novih različic ni na voljo</source>
        <translation>Novih različic ni na voljo</translation>
    </message>
    <message>
        <source>Nameščeno imaš najnovejšo različico </source>
        <translation>Nameščeno imaš najnovejšo različico </translation>
    </message>
    <message>
        <source>a.</source>
        <translation>a.</translation>
    </message>
    <message>
        <source>Preverjanje za posodobitve ni uspelo</source>
        <translation>Preverjanje za posodobitve ni uspelo</translation>
    </message>
</context>
<context>
    <name>qtsparkle::UpdateDialog</name>
    <message>
        <source>Nova različica %1e je na voljo</source>
        <translation>Nova različica %1e je na voljo</translation>
    </message>
    <message>
        <source>%1 %2 je na voljo - ti imaš %3. Želiš prenesti najnovejšo različico?</source>
        <translation>%1 %2 je na voljo - ti imaš %3. Želiš prenesti najnovejšo različico?</translation>
    </message>
    <message>
        <source>Posodobitve ni mogoče namestiti</source>
        <translation>Posodobitve ni mogoče namestiti</translation>
    </message>
    <message>
        <source>Naslov posodobitve ne vodi na splet:</source>
        <translation>Naslov posodobitve ne vodi na splet:</translation>
    </message>
</context>
<context>
    <name>qtsparkle::Updater</name>
    <message>
        <source>Check for updates automatically?</source>
        <translation>Želiš samodejno preverjati posodobitve?</translation>
    </message>
    <message>
        <source>Should %1 automatically check for updates?  You can always check for updates manually from the menu.</source>
        <translation>Naj %1 samodejno preverja, ali je na voljo nova različica?  Posodobitve lahko kadarkoli preveriš tudi v meniju.</translation>
    </message>
    <message>
        <source>Check automatically</source>
        <translation>Preverjaj samodejno</translation>
    </message>
    <message>
        <source>Don&apos;t check</source>
        <translation>Ne preverjaj</translation>
    </message>
</context>
</TS>
