"use strict";(()=>{var O0=Object.defineProperty;var F0=(i,e,t)=>e in i?O0(i,e,{enumerable:!0,configurable:!0,writable:!0,value:t}):i[e]=t;var j=(i,e,t)=>F0(i,typeof e!="symbol"?e+"":e,t);var bf=`:root {
  --ground: #f3f2ee; --panel: #fbfaf8; --ink: #22252a; --soft: #676b73; --line: #dfdcd5;
  --accent: #a8481c; --accent-ink: #ffffff; --wash: #efece5; --warn: #8a5a00; --shade: 0 1px 2px #0000000f, 0 4px 16px #00000012;
}
@media (prefers-color-scheme: dark) {
  :root {
    --ground: #15171b; --panel: #1c1f24; --ink: #e7e5e0; --soft: #9da1a9; --line: #31353c;
    --accent: #f0a04b; --accent-ink: #1a1206; --wash: #262a31; --warn: #e6b455; --shade: 0 1px 2px #0006, 0 4px 18px #0007;
  }
}
* { box-sizing: border-box }
html, body { height: 100%; margin: 0; overflow: hidden; background: var(--ground); color: var(--ink); font: 14px/1.45 system-ui, -apple-system, "Segoe UI", Roboto, "DejaVu Sans", sans-serif; -webkit-text-size-adjust: 100% }
#app { display: grid; grid-template-columns: clamp(320px, 27vw, 420px) minmax(0, 1fr); height: 100% }
#panel { grid-column: 1; background: var(--panel); border-right: 1px solid var(--line); overflow-y: auto; overscroll-behavior: contain; scrollbar-width: thin; padding: 18px 18px 28px }
#stage { grid-column: 2; position: relative; min-width: 0; overflow: hidden }
#stage canvas.model { position: absolute; inset: 0; width: 100%; height: 100%; display: block; touch-action: none; outline: none; cursor: grab }
#stage canvas.model:active { cursor: grabbing }
#stage canvas.model:focus-visible { box-shadow: inset 0 0 0 2px var(--accent) }
h1 { font-size: 19px; line-height: 1.25; font-weight: 650; margin: 0 0 2px; letter-spacing: -.01em; overflow-wrap: anywhere; display: -webkit-box; -webkit-line-clamp: 2; -webkit-box-orient: vertical; overflow: hidden }
.sub { color: var(--soft); margin: 0 0 14px; font-size: 13px; overflow-wrap: anywhere }
.figures { display: grid; grid-template-columns: repeat(3, auto); justify-content: space-between; gap: 4px 12px; margin: 12px 0 4px }
.figures div { min-width: 0 }
.figures b { display: block; font-size: 17px; font-weight: 600; font-variant-numeric: tabular-nums; letter-spacing: -.01em; white-space: nowrap }
.figures span { color: var(--soft); font-size: 12px; white-space: nowrap }
label.field { display: block; font-size: 12px; color: var(--soft); margin-top: 10px }
select, input[type=search], input[type=number], input[type=text], button { font: inherit; color: var(--ink) }
select, input[type=search], input[type=number] { width: 100%; background: var(--ground); border: 1px solid var(--line); border-radius: 7px; padding: 6px 9px; margin-top: 3px; min-height: 34px }
select { appearance: none; background-image: linear-gradient(45deg, transparent 50%, var(--soft) 50%), linear-gradient(135deg, var(--soft) 50%, transparent 50%); background-position: right 15px center, right 10px center; background-size: 5px 5px; background-repeat: no-repeat; padding-right: 30px }
:is(select, input, button, summary, a, tr, .histogram, .carpet):focus-visible { outline: 2px solid var(--accent); outline-offset: 1px }
button { background: none; border: 1px solid transparent; border-radius: 7px; padding: 5px 9px; cursor: pointer; line-height: 1.3 }
button:hover { background: var(--wash) }
button.solid { border-color: var(--line); background: var(--ground) }
button.solid:hover { background: var(--wash) }
button[aria-pressed=true], .switch button[aria-pressed=true] { background: var(--accent); color: var(--accent-ink) }
.switch { display: flex; gap: 2px; padding: 2px; background: var(--wash); border-radius: 9px; margin-top: 8px; flex-wrap: wrap }
.switch button { flex: 1 1 auto; padding: 4px 8px; font-size: 13px; overflow: hidden; text-overflow: ellipsis; white-space: nowrap; max-width: 100% }
input[type=range] { width: 100%; accent-color: var(--accent); margin: 4px 0; min-height: 24px }
input[type=checkbox] { accent-color: var(--accent); width: 16px; height: 16px; vertical-align: -3px; margin: 0 7px 0 0 }
details { border-top: 1px solid var(--line); margin-top: 14px; padding-top: 2px }
details > summary { list-style: none; cursor: pointer; font-weight: 600; padding: 9px 0 7px; display: flex; align-items: center; gap: 8px; border-radius: 4px }
details > summary::-webkit-details-marker { display: none }
details > summary::after { content: ""; width: 7px; height: 7px; border: solid var(--soft); border-width: 0 1.5px 1.5px 0; transform: rotate(45deg) translate(-2px, -2px); margin-left: auto; margin-right: 4px }
details[open] > summary::after { transform: rotate(225deg) translate(-2px, -2px) }
.row { display: flex; gap: 8px; align-items: center }
.row > * { min-width: 0 }
.row .grow { flex: 1 }
.quiet { color: var(--soft); font-size: 12.5px; margin: 6px 0 }
.warn { color: var(--warn); font-size: 12.5px; margin: 6px 0; overflow-wrap: anywhere }
svg { width: 18px; height: 18px; fill: none; stroke: currentColor; stroke-width: 1.7; stroke-linecap: round; stroke-linejoin: round; display: block }
.table { max-height: 330px; overflow: auto; margin: 8px -6px 0; scrollbar-width: thin }
table { border-collapse: collapse; width: 100%; font-size: 13px }
th { position: sticky; top: 0; background: var(--panel); padding: 0; text-align: right; white-space: nowrap; z-index: 1 }
th button { font-weight: 500; color: var(--soft); font-size: 12px; padding: 4px 6px; border-radius: 5px }
/* Numbers are whole at every width; names take what is left, at least 90 pixels. */
th:first-child { text-align: left; width: 100%; min-width: 90px }
th[aria-sort=ascending] button::after { content: " \u2191" } th[aria-sort=descending] button::after { content: " \u2193" }
td { padding: 4px 6px; text-align: right; font-variant-numeric: tabular-nums; white-space: nowrap }
td:first-child { text-align: left; max-width: 0; overflow: hidden; text-overflow: ellipsis }
td:last-child { padding: 0; text-align: center }
tbody tr { cursor: pointer; border-radius: 5px }
tbody tr:hover td { background: var(--wash) }
tbody tr.chosen td { background: var(--wash); font-weight: 600 }
tbody tr.off td { color: var(--soft); opacity: .6 }
td button { padding: 4px 6px; color: var(--soft) }
td button svg { width: 16px; height: 16px }
dl { display: grid; grid-template-columns: minmax(84px, 46%) minmax(0, 1fr); gap: 4px 14px; margin: 6px 0; font-size: 13px }
dt { color: var(--soft) } dd { margin: 0; overflow-wrap: anywhere; font-variant-numeric: tabular-nums; max-height: 6em; overflow: auto }
dd bdi, td bdi { unicode-bidi: isolate }
.name { font-weight: 600; margin: 2px 0; overflow-wrap: anywhere }
.badge { font-size: 12px; font-weight: 500; color: var(--warn); border: 1px solid currentColor; border-radius: 9px; padding: 0 7px }
.value { font-size: 24px; font-weight: 650; letter-spacing: -.02em; font-variant-numeric: tabular-nums }
.value small { font-size: 14px; font-weight: 500; color: var(--soft); letter-spacing: 0 }
.carpet { width: 100%; height: 112px; display: block; margin: 6px 0 2px }
.caption { font-size: 12px; color: var(--soft); margin: 10px 0 0 }
.clock { display: flex; justify-content: space-between; font-size: 13px; font-variant-numeric: tabular-nums; margin-top: 6px }
.clock span { color: var(--soft) }
pre { white-space: pre-wrap; font: 11px/1.4 ui-monospace, monospace; color: var(--soft); max-height: 200px; overflow: auto; background: var(--ground); padding: 8px; border-radius: 6px }
kbd { font: 11.5px ui-monospace, monospace; border: 1px solid var(--line); border-radius: 4px; padding: 0 5px; background: var(--ground) }

#bar, #legend { z-index: 3 }
#bar { position: absolute; top: 12px; left: 12px; display: flex; gap: 2px; background: var(--panel); border: 1px solid var(--line); border-radius: 10px; padding: 3px; box-shadow: var(--shade) }
#bar button { padding: 6px 8px; font-size: 13px; min-width: 34px; display: grid; place-items: center }
#bar i { width: 1px; background: var(--line); margin: 4px 3px }
#legend { position: absolute; right: 14px; top: 14px; width: 168px; background: var(--panel); border: 1px solid var(--line); border-radius: 12px; padding: 10px 12px; box-shadow: var(--shade) }
#legend .unit { font-size: 12.5px; color: var(--soft); margin: 0 0 6px; line-height: 1.35; overflow: hidden }
#legend .unit b { color: var(--ink); font-weight: 600; display: -webkit-box; -webkit-line-clamp: 4; -webkit-box-orient: vertical; overflow: hidden; overflow-wrap: anywhere }
#legend .plot { position: relative; height: 232px; margin: 4px 0 }
#legend canvas { position: absolute; inset: 0; width: 100%; height: 100%; cursor: ns-resize; touch-action: none }
#legend input[type=number] { min-height: 26px; padding: 1px 6px; margin: 0; font-size: 12.5px; width: 76px; font-variant-numeric: tabular-nums; appearance: textfield }
#legend input::-webkit-inner-spin-button { display: none }
#legend .end { display: flex; justify-content: space-between; align-items: center; gap: 6px }
#legend .end button { font-size: 12px; color: var(--soft); padding: 2px 6px }
#legend .filter { margin: 8px 0 0; font-size: 12.5px; line-height: 1.35 }
#legend .filter button { font-size: 12px; padding: 1px 6px; margin-left: -6px; color: var(--accent) }
#hint { position: absolute; pointer-events: none; background: var(--panel); border: 1px solid var(--line); border-radius: 9px; padding: 7px 10px; box-shadow: var(--shade); font-size: 12.5px; max-width: 240px; z-index: 5; line-height: 1.35 }
#hint b { font-size: 15px; font-variant-numeric: tabular-nums } 
#hint span { color: var(--soft); display: block; overflow: hidden; text-overflow: ellipsis; white-space: nowrap }
#pin { position: absolute; width: 14px; height: 14px; margin: -7px 0 0 -7px; border: 2px solid var(--panel); border-radius: 50%; background: var(--accent); pointer-events: none; box-shadow: 0 0 0 1px #0006 }
.hour { position: absolute; pointer-events: none; font-size: 11px; color: var(--soft); transform: translate(-50%, -170%); font-variant-numeric: tabular-nums }
.beside { position: absolute; bottom: 64px; transform: translateX(-50%); background: var(--panel); border: 1px solid var(--line); border-radius: 7px; padding: 3px 10px; font-size: 13px; max-width: 40%; overflow: hidden; text-overflow: ellipsis; white-space: nowrap; pointer-events: none }
#scale { position: absolute; left: 18px; bottom: 16px; pointer-events: none; display: flex; align-items: flex-end; gap: 18px }
#scale .length { border: solid var(--soft); border-width: 0 1.5px 1.5px; height: 7px; text-align: center; font-size: 12px; color: var(--ink); line-height: 1; position: relative }
#scale .length span { position: absolute; bottom: 6px; left: 0; right: 0; white-space: nowrap; text-shadow: 0 0 4px var(--ground), 0 0 4px var(--ground) }
#scale svg { width: 46px; height: 46px; stroke-width: 1.4; overflow: visible }
#scale svg text { font: 600 11px system-ui, sans-serif; fill: var(--ink); stroke: none; text-anchor: middle; dominant-baseline: central }
.hidden { position: absolute; width: 1px; height: 1px; overflow: hidden; clip-path: inset(50%) }
[hidden] { display: none !important }
#grip { display: none }

@media (max-width: 760px) {
  #app { grid-template-columns: minmax(0, 1fr); grid-template-rows: minmax(0, 1fr) 46%; }
  #stage { grid-column: 1; grid-row: 1 }
  #panel { grid-column: 1; grid-row: 2; border-right: 0; border-top: 1px solid var(--line); border-radius: 14px 14px 0 0; margin-top: -14px; z-index: 4; padding: 6px 16px 28px; box-shadow: 0 -4px 18px #0000001f }
  #app.low { grid-template-rows: minmax(0, 1fr) 132px }
  #grip { display: block; width: 100%; padding: 8px 0 10px }
  #grip::before { content: ""; display: block; width: 44px; height: 4px; border-radius: 2px; background: var(--line); margin: 0 auto }
  #bar { top: 8px; left: 8px; right: 122px; flex-wrap: wrap; width: fit-content } #bar i { display: none }
  #legend { width: 106px; right: 8px; top: 8px; padding: 8px 9px }
  #legend .plot { height: 128px }
  #legend input[type=number] { width: 60px }
  #legend .end button, #legend .unit b { display: none }
  #scale { bottom: 24px; left: 14px }
  td { padding: 7px 6px } th button { padding: 7px 6px } td button { padding: 8px }
}
@media (prefers-reduced-motion: no-preference) { details > summary::after { transition: transform .12s } }
`;var Sf='.uplot, .uplot *, .uplot *::before, .uplot *::after {box-sizing: border-box;}.uplot {font-family: system-ui, -apple-system, "Segoe UI", Roboto, "Helvetica Neue", Arial, "Noto Sans", sans-serif, "Apple Color Emoji", "Segoe UI Emoji", "Segoe UI Symbol", "Noto Color Emoji";line-height: 1.5;width: min-content;}.u-title {text-align: center;font-size: 18px;font-weight: bold;}.u-wrap {position: relative;user-select: none;}.u-over, .u-under {position: absolute;}.u-under {overflow: hidden;}.uplot canvas {display: block;position: relative;width: 100%;height: 100%;}.u-axis {position: absolute;}.u-legend {font-size: 14px;margin: auto;text-align: center;}.u-inline {display: block;}.u-inline * {display: inline-block;}.u-inline tr {margin-right: 16px;}.u-legend th {font-weight: 600;}.u-legend th > * {vertical-align: middle;display: inline-block;}.u-legend .u-marker {width: 1em;height: 1em;margin-right: 4px;background-clip: padding-box !important;}.u-inline.u-live th::after {content: ":";vertical-align: middle;}.u-inline:not(.u-live) .u-value {display: none;}.u-series > * {padding: 4px;}.u-series th {cursor: pointer;}.u-legend .u-off > * {opacity: 0.3;}.u-select {background: rgba(0,0,0,0.07);position: absolute;pointer-events: none;}.u-cursor-x, .u-cursor-y {position: absolute;left: 0;top: 0;pointer-events: none;will-change: transform;}.u-hz .u-cursor-x, .u-vt .u-cursor-y {height: 100%;border-right: 1px dashed #607D8B;}.u-hz .u-cursor-y, .u-vt .u-cursor-x {width: 100%;border-bottom: 1px dashed #607D8B;}.u-cursor-pt {position: absolute;top: 0;left: 0;border-radius: 50%;border: 0 solid;pointer-events: none;will-change: transform;/*this has to be !important since we set inline "background" shorthand */background-clip: padding-box !important;}.u-axis.u-off, .u-select.u-off, .u-cursor-x.u-off, .u-cursor-y.u-off, .u-cursor-pt.u-off {display: none;}';function X(i,e={},...t){let n=document.createElement(i);for(let[s,r]of Object.entries(e))typeof r=="function"?n.addEventListener(s,r):r===!0?n.setAttribute(s,""):r!==!1&&r!==void 0&&n.setAttribute(s,String(r));for(let s of t)s&&n.append(s);return n}function Si(i){let e="http://www.w3.org/2000/svg",t=document.createElementNS(e,"svg");t.setAttribute("viewBox","0 0 24 24"),t.setAttribute("aria-hidden","true");let n=document.createElementNS(e,"path");return n.setAttribute("d",i),t.append(n),t}function Nh(i,e){let t=X("a",{href:URL.createObjectURL(e),download:i});document.body.append(t),t.click(),t.remove(),window.setTimeout(()=>URL.revokeObjectURL(t.href),1e4)}var z0="uplot",H0="u-hz",V0="u-vt",G0="u-title",W0="u-wrap",X0="u-under",q0="u-over",Y0="u-axis",$s="u-off",$0="u-select",Z0="u-cursor-x",K0="u-cursor-y",J0="u-cursor-pt",j0="u-legend",Q0="u-live",e_="u-inline",t_="u-series",n_="u-marker",Mf="u-label",i_="u-value",No="width",Uo="height";var wf="bottom",Lr="left",Uh="right",jh="#000",Ef=jh+"0",Oh="mousemove",Tf="mousedown",Fh="mouseup",Af="mouseenter",Rf="mouseleave",Cf="dblclick",s_="resize",r_="scroll",Pf="change",Ya="dppxchange",Qh="--",kr=typeof window<"u",Vh=kr?document:null,Nr=kr?window:null,o_=kr?navigator:null,Mt,Ga;function Gh(){let i=devicePixelRatio;Mt!=i&&(Mt=i,Ga&&Xh(Pf,Ga,Gh),Ga=matchMedia(`(min-resolution: ${Mt-.001}dppx) and (max-resolution: ${Mt+.001}dppx)`),Zs(Pf,Ga,Gh),Nr.dispatchEvent(new CustomEvent(Ya)))}function Qn(i,e){if(e!=null){let t=i.classList;!t.contains(e)&&t.add(e)}}function Wh(i,e){let t=i.classList;t.contains(e)&&t.remove(e)}function Vt(i,e,t){i.style[e]=t+"px"}function Mi(i,e,t,n){let s=Vh.createElement(i);return e!=null&&Qn(s,e),t?.insertBefore(s,n),s}function fi(i,e){return Mi("div",i,e)}var If=new WeakMap;function Hi(i,e,t,n,s){let r="translate("+e+"px,"+t+"px)",o=If.get(i);r!=o&&(i.style.transform=r,If.set(i,r),e<0||t<0||e>n||t>s?Qn(i,$s):Wh(i,$s))}var Lf=new WeakMap;function Df(i,e,t){let n=e+t,s=Lf.get(i);n!=s&&(Lf.set(i,n),i.style.background=e,i.style.borderColor=t)}var Nf=new WeakMap;function Uf(i,e,t,n){let s=e+""+t,r=Nf.get(i);s!=r&&(Nf.set(i,s),i.style.height=t+"px",i.style.width=e+"px",i.style.marginLeft=n?-e/2+"px":0,i.style.marginTop=n?-t/2+"px":0)}var eu={passive:!0},a_={...eu,capture:!0};function Zs(i,e,t,n){e.addEventListener(i,t,n?a_:eu)}function Xh(i,e,t,n){e.removeEventListener(i,t,eu)}kr&&Gh();function wi(i,e,t,n){let s;t=t||0,n=n||e.length-1;let r=n<=2147483647;for(;n-t>1;)s=r?t+n>>1:ei((t+n)/2),e[s]<i?t=s:n=s;return i-e[t]<=e[n]-i?t:n}function cp(i){return(t,n,s)=>{let r=-1,o=-1;for(let a=n;a<=s;a++)if(i(t[a])){r=a;break}for(let a=s;a>=n;a--)if(i(t[a])){o=a;break}return[r,o]}}var hp=i=>i!=null,up=i=>i!=null&&i>0,Ka=cp(hp),l_=cp(up);function c_(i,e,t,n=0,s=!1){let r=s?l_:Ka,o=s?up:hp;[e,t]=r(i,e,t);let a=i[e],l=i[e];if(e>-1)if(n==1)a=i[e],l=i[t];else if(n==-1)a=i[t],l=i[e];else for(let c=e;c<=t;c++){let h=i[c];o(h)&&(h<a?a=h:h>l&&(l=h))}return[a??Dt,l??-Dt]}function Ja(i,e,t,n){let s=Bf(i),r=Bf(e);i==e&&(s==-1?(i*=t,e/=t):(i/=t,e*=t));let o=t==10?ts:dp,a=s==1?ei:pi,l=r==1?pi:ei,c=a(o(gn(i))),h=l(o(gn(e))),u=Ur(t,c),d=Ur(t,h);return t==10&&(c<0&&(u=Nt(u,-c)),h<0&&(d=Nt(d,-h))),n||t==2?(i=u*s,e=d*r):(i=gp(i,u),e=ja(e,d)),[i,e]}function tu(i,e,t,n){let s=Ja(i,e,t,n);return i==0&&(s[0]=0),e==0&&(s[1]=0),s}var nu=.1,Of={mode:3,pad:nu},Fo={pad:0,soft:null,mode:0},h_={min:Fo,max:Fo};function $a(i,e,t,n){return Qa(t)?Ff(i,e,t):(Fo.pad=t,Fo.soft=n?0:null,Fo.mode=n?3:0,Ff(i,e,h_))}function bt(i,e){return i??e}function u_(i,e,t){for(e=bt(e,0),t=bt(t,i.length-1);e<=t;){if(i[e]!=null)return!0;e++}return!1}function Ff(i,e,t){let n=t.min,s=t.max,r=bt(n.pad,0),o=bt(s.pad,0),a=bt(n.hard,-Dt),l=bt(s.hard,Dt),c=bt(n.soft,Dt),h=bt(s.soft,-Dt),u=bt(n.mode,0),d=bt(s.mode,0),f=e-i,p=ts(f),y=zn(gn(i),gn(e)),m=ts(y),g=gn(m-p);(f<1e-24||g>10)&&(f=0,(i==0||e==0)&&(f=1e-24,u==2&&c!=Dt&&(r=0),d==2&&h!=-Dt&&(o=0)));let v=f||y||1e3,A=ts(v),S=Ur(10,ei(A)),C=v*(f==0?i==0?.1:1:r),T=Nt(gp(i-C,S/10),24),x=i>=c&&(u==1||u==3&&T<=c||u==2&&T>=c)?c:Dt,E=zn(a,T<x&&i>=x?x:Ei(x,T)),B=v*(f==0?e==0?.1:1:o),N=Nt(ja(e+B,S/10),24),D=e<=h&&(d==1||d==3&&N>=h||d==2&&N<=h)?h:-Dt,G=Ei(l,N>D&&e<=D?D:zn(D,N));return E==G&&E==0&&(G=100),[E,G]}var d_=new Intl.NumberFormat(kr?o_.language:"en-US"),iu=i=>d_.format(i),ti=Math,qa=ti.PI,gn=ti.abs,ei=ti.floor,mn=ti.round,pi=ti.ceil,Ei=ti.min,zn=ti.max,Ur=ti.pow,Bf=ti.sign,ts=ti.log10,dp=ti.log2,f_=(i,e=1)=>ti.sinh(i)*e,Bh=(i,e=1)=>ti.asinh(i/e),Dt=1/0;function kf(i){return(ts((i^i>>31)-(i>>31))|0)+1}function qh(i,e,t){return Ei(zn(i,e),t)}function fp(i){return typeof i=="function"}function xt(i){return fp(i)?i:()=>i}var p_=()=>{},pp=i=>i,mp=(i,e)=>e,m_=i=>null,zf=i=>!0,Hf=(i,e)=>i==e,g_=/\.\d*?(?=9{6,}|0{6,})/gm,Ks=i=>{if(xp(i)||Ts.has(i))return i;let e=`${i}`,t=e.match(g_);if(t==null)return i;let n=t[0].length-1;if(e.indexOf("e-")!=-1){let[s,r]=e.split("e");return+`${Ks(s)}e${r}`}return Nt(i,n)};function qs(i,e){return Ks(Nt(Ks(i/e))*e)}function ja(i,e){return Ks(pi(Ks(i/e))*e)}function gp(i,e){return Ks(ei(Ks(i/e))*e)}function Nt(i,e=0){if(xp(i))return i;let t=10**e,n=i*t*(1+Number.EPSILON);return mn(n)/t}var Ts=new Map;function _p(i){return((""+i).split(".")[1]||"").length}function ko(i,e,t,n){let s=[],r=n.map(_p);for(let o=e;o<t;o++){let a=gn(o),l=Nt(Ur(i,o),a);for(let c=0;c<n.length;c++){let h=i==10?+`${n[c]}e${o}`:n[c]*l,u=(o>=0?0:a)+(o>=r[c]?0:r[c]),d=i==10?h:Nt(h,u);s.push(d),Ts.set(d,u)}}return s}var Bo={},su=[],Or=[null,null],Es=Array.isArray,xp=Number.isInteger,__=i=>i===void 0;function Vf(i){return typeof i=="string"}function Qa(i){let e=!1;if(i!=null){let t=i.constructor;e=t==null||t==Object}return e}function x_(i){return i!=null&&typeof i=="object"}var v_=Object.getPrototypeOf(Uint8Array),vp="__proto__";function Fr(i,e=Qa){let t;if(Es(i)){let n=i.find(s=>s!=null);if(Es(n)||e(n)){t=Array(i.length);for(let s=0;s<i.length;s++)t[s]=Fr(i[s],e)}else t=i.slice()}else if(i instanceof v_)t=i.slice();else if(e(i)){t={};for(let n in i)n!=vp&&(t[n]=Fr(i[n],e))}else t=i;return t}function cn(i){let e=arguments;for(let t=1;t<e.length;t++){let n=e[t];for(let s in n)s!=vp&&(Qa(i[s])?cn(i[s],Fr(n[s])):i[s]=Fr(n[s]))}return i}var y_=0,b_=1,S_=2;function M_(i,e,t){for(let n=0,s,r=-1;n<e.length;n++){let o=e[n];if(o>r){for(s=o-1;s>=0&&i[s]==null;)i[s--]=null;for(s=o+1;s<t&&i[s]==null;)i[r=s++]=null}}}function w_(i,e){if(A_(i)){let o=i[0].slice();for(let a=1;a<i.length;a++)o.push(...i[a].slice(1));return R_(o[0])||(o=T_(o)),o}let t=new Set;for(let o=0;o<i.length;o++){let l=i[o][0],c=l.length;for(let h=0;h<c;h++)t.add(l[h])}let n=[Array.from(t).sort((o,a)=>o-a)],s=n[0].length,r=new Map;for(let o=0;o<s;o++)r.set(n[0][o],o);for(let o=0;o<i.length;o++){let a=i[o],l=a[0];for(let c=1;c<a.length;c++){let h=a[c],u=Array(s).fill(void 0),d=e?e[o][c]:b_,f=[];for(let p=0;p<h.length;p++){let y=h[p],m=r.get(l[p]);y===null?d!=y_&&(u[m]=y,d==S_&&f.push(m)):u[m]=y}M_(u,f,s),n.push(u)}}return n}var E_=typeof queueMicrotask>"u"?i=>Promise.resolve().then(i):queueMicrotask;function T_(i){let e=i[0],t=e.length,n=Array(t);for(let r=0;r<n.length;r++)n[r]=r;n.sort((r,o)=>e[r]-e[o]);let s=[];for(let r=0;r<i.length;r++){let o=i[r],a=Array(t);for(let l=0;l<t;l++)a[l]=o[n[l]];s.push(a)}return s}function A_(i){let e=i[0][0],t=e.length;for(let n=1;n<i.length;n++){let s=i[n][0];if(s.length!=t)return!1;if(s!=e){for(let r=0;r<t;r++)if(s[r]!=e[r])return!1}}return!0}function R_(i,e=100){let t=i.length;if(t<=1)return!0;let n=0,s=t-1;for(;n<=s&&i[n]==null;)n++;for(;s>=n&&i[s]==null;)s--;if(s<=n)return!0;let r=zn(1,ei((s-n+1)/e));for(let o=i[n],a=n+r;a<=s;a+=r){let l=i[a];if(l!=null){if(l<=o)return!1;o=l}}return!0}var yp=["January","February","March","April","May","June","July","August","September","October","November","December"],bp=["Sunday","Monday","Tuesday","Wednesday","Thursday","Friday","Saturday"];function Sp(i){return i.slice(0,3)}var C_=bp.map(Sp),P_=yp.map(Sp),I_={MMMM:yp,MMM:P_,WWWW:bp,WWW:C_};function Do(i){return(i<10?"0":"")+i}function L_(i){return(i<10?"00":i<100?"0":"")+i}var D_={YYYY:i=>i.getFullYear(),YY:i=>(i.getFullYear()+"").slice(2),MMMM:(i,e)=>e.MMMM[i.getMonth()],MMM:(i,e)=>e.MMM[i.getMonth()],MM:i=>Do(i.getMonth()+1),M:i=>i.getMonth()+1,DD:i=>Do(i.getDate()),D:i=>i.getDate(),WWWW:(i,e)=>e.WWWW[i.getDay()],WWW:(i,e)=>e.WWW[i.getDay()],HH:i=>Do(i.getHours()),H:i=>i.getHours(),h:i=>{let e=i.getHours();return e==0?12:e>12?e-12:e},AA:i=>i.getHours()>=12?"PM":"AM",aa:i=>i.getHours()>=12?"pm":"am",a:i=>i.getHours()>=12?"p":"a",mm:i=>Do(i.getMinutes()),m:i=>i.getMinutes(),ss:i=>Do(i.getSeconds()),s:i=>i.getSeconds(),fff:i=>L_(i.getMilliseconds())};function ru(i,e){e=e||I_;let t=[],n=/\{([a-z]+)\}|[^{]+/gi,s;for(;s=n.exec(i);)t.push(s[0][0]=="{"?D_[s[1]]:s[0]);return r=>{let o="";for(let a=0;a<t.length;a++)o+=typeof t[a]=="string"?t[a]:t[a](r,e);return o}}var N_=new Intl.DateTimeFormat().resolvedOptions().timeZone;function U_(i,e){let t;return e=="UTC"||e=="Etc/UTC"?t=new Date(+i+i.getTimezoneOffset()*6e4):e==N_?t=i:(t=new Date(i.toLocaleString("en-US",{timeZone:e})),t.setMilliseconds(i.getMilliseconds())),t}var Mp=i=>i%1==0,Za=[1,2,2.5,5],O_=ko(10,-32,0,Za),wp=ko(10,0,32,Za),F_=wp.filter(Mp),Ys=O_.concat(wp),ou=`
`,Ep="{YYYY}",Gf=ou+Ep,Tp="{M}/{D}",Oo=ou+Tp,Wa=Oo+"/{YY}",Ap="{aa}",B_="{h}:{mm}",Dr=B_+Ap,Wf=ou+Dr,Xf=":{ss}",Et=null;function Rp(i){let e=i*1e3,t=e*60,n=t*60,s=n*24,r=s*30,o=s*365,l=(i==1?ko(10,0,3,Za).filter(Mp):ko(10,-3,0,Za)).concat([e,e*5,e*10,e*15,e*30,t,t*5,t*10,t*15,t*30,n,n*2,n*3,n*4,n*6,n*8,n*12,s,s*2,s*3,s*4,s*5,s*6,s*7,s*8,s*9,s*10,s*15,r,r*2,r*3,r*4,r*6,o,o*2,o*5,o*10,o*25,o*50,o*100]),c=[[o,Ep,Et,Et,Et,Et,Et,Et,1],[s*28,"{MMM}",Gf,Et,Et,Et,Et,Et,1],[s,Tp,Gf,Et,Et,Et,Et,Et,1],[n,"{h}"+Ap,Wa,Et,Oo,Et,Et,Et,1],[t,Dr,Wa,Et,Oo,Et,Et,Et,1],[e,Xf,Wa+" "+Dr,Et,Oo+" "+Dr,Et,Wf,Et,1],[i,Xf+".{fff}",Wa+" "+Dr,Et,Oo+" "+Dr,Et,Wf,Et,1]];function h(u){return(d,f,p,y,m,g)=>{let v=[],A=m>=o,S=m>=r&&m<o,C=u(p),T=Nt(C*i,3),x=kh(C.getFullYear(),A?0:C.getMonth(),S||A?1:C.getDate()),E=Nt(x*i,3);if(S||A){let B=S?m/r:0,N=A?m/o:0,D=T==E?T:Nt(kh(x.getFullYear()+N,x.getMonth()+B,1)*i,3),G=new Date(mn(D/i)),V=G.getFullYear(),I=G.getMonth();for(let W=0;D<=y;W++){let $=kh(V+N*W,I+B*W,1),z=$-u(Nt($*i,3));D=Nt((+$+z)*i,3),D<=y&&v.push(D)}}else{let B=m>=s?s:m,N=ei(p)-ei(T),D=E+N+ja(T-E,B);v.push(D);let G=u(D),V=G.getHours()+G.getMinutes()/t+G.getSeconds()/n,I=m/n,W=d.axes[f]._space,$=g/W;for(;D=Nt(D+m,i==1?0:3),!(D>y);)if(I>1){let z=ei(Nt(V+I,6))%24,ee=u(D).getHours()-z;ee>1&&(ee=-1),D-=ee*n,V=(V+I)%24;let re=v[v.length-1];Nt((D-re)/m,3)*$>=.7&&v.push(D)}else v.push(D)}return v}}return[l,c,h]}var[k_,z_,H_]=Rp(1),[V_,G_,W_]=Rp(.001);ko(2,-53,53,[1]);function qf(i,e){return i.map(t=>t.map((n,s)=>s==0||s==8||n==null?n:e(s==1||t[8]==0?n:t[1]+n)))}function Yf(i,e){return(t,n,s,r,o)=>{let a=e.find(p=>o>=p[0])||e[e.length-1],l,c,h,u,d,f;return n.map(p=>{let y=i(p),m=y.getFullYear(),g=y.getMonth(),v=y.getDate(),A=y.getHours(),S=y.getMinutes(),C=y.getSeconds(),T=m!=l&&a[2]||g!=c&&a[3]||v!=h&&a[4]||A!=u&&a[5]||S!=d&&a[6]||C!=f&&a[7]||a[1];return l=m,c=g,h=v,u=A,d=S,f=C,T(y)})}}function X_(i,e){let t=ru(e);return(n,s,r,o,a)=>s.map(l=>t(i(l)))}function kh(i,e,t){return new Date(i,e,t)}function $f(i,e){return e(i)}var q_="{YYYY}-{MM}-{DD} {h}:{mm}{aa}";function Zf(i,e){return(t,n,s,r)=>r==null?Qh:e(i(n))}function Y_(i,e){let t=i.series[e];return t.width?t.stroke(i,e):t.points.width?t.points.stroke(i,e):null}function $_(i,e){return i.series[e].fill(i,e)}var Z_={show:!0,live:!0,isolate:!1,mount:p_,markers:{show:!0,width:2,stroke:Y_,fill:$_,dash:"solid"},idx:null,idxs:null,values:[]};function K_(i,e){let t=i.cursor.points,n=fi(),s=t.size(i,e);Vt(n,No,s),Vt(n,Uo,s);let r=s/-2;Vt(n,"marginLeft",r),Vt(n,"marginTop",r);let o=t.width(i,e,s);return o&&Vt(n,"borderWidth",o),n}function J_(i,e){let t=i.series[e].points;return t._fill||t._stroke}function j_(i,e){let t=i.series[e].points;return t._stroke||t._fill}function Q_(i,e){return i.series[e].points.size}var zh=[0,0];function ex(i,e,t){return zh[0]=e,zh[1]=t,zh}function Xa(i,e,t,n=!0){return s=>{s.button==0&&(!n||s.target==e)&&t(s)}}function Hh(i,e,t,n=!0){return s=>{(!n||s.target==e)&&t(s)}}var tx={show:!0,x:!0,y:!0,lock:!1,move:ex,points:{one:!1,show:K_,size:Q_,width:0,stroke:j_,fill:J_},bind:{mousedown:Xa,mouseup:Xa,click:Xa,dblclick:Xa,mousemove:Hh,mouseleave:Hh,mouseenter:Hh},drag:{setScale:!0,x:!0,y:!1,dist:0,uni:null,click:(i,e)=>{e.stopPropagation(),e.stopImmediatePropagation()},_x:!1,_y:!1},focus:{dist:(i,e,t,n,s)=>n-s,prox:-1,bias:0},hover:{skip:[void 0],prox:null,bias:0},left:-10,top:-10,idx:null,dataIdx:null,idxs:null,event:null},Cp={show:!0,stroke:"rgba(0,0,0,0.07)",width:2},au=cn({},Cp,{filter:mp}),Pp=cn({},au,{size:10}),Ip=cn({},Cp,{show:!1}),lu='12px system-ui, -apple-system, "Segoe UI", Roboto, "Helvetica Neue", Arial, "Noto Sans", sans-serif, "Apple Color Emoji", "Segoe UI Emoji", "Segoe UI Symbol", "Noto Color Emoji"',Lp="bold "+lu,Dp=1.5,Kf={show:!0,scale:"x",stroke:jh,space:50,gap:5,alignTo:1,size:50,labelGap:0,labelSize:30,labelFont:Lp,side:2,grid:au,ticks:Pp,border:Ip,font:lu,lineGap:Dp,rotate:0},nx="Value",ix="Time",Jf={show:!0,scale:"x",auto:!1,sorted:1,min:Dt,max:-Dt,idxs:[]};function sx(i,e,t,n,s){return e.map(r=>r==null?"":iu(r))}function rx(i,e,t,n,s,r,o){let a=[],l=Ts.get(s)||0;t=o?t:Nt(ja(t,s),l);for(let c=t;c<=n;c=Nt(c+s,l))a.push(Object.is(c,-0)?0:c);return a}function Yh(i,e,t,n,s,r,o){let a=[],l=i.scales[i.axes[e].scale].log,c=l==10?ts:dp,h=ei(c(t));s=Ur(l,h),l==10&&(s=Ys[wi(s,Ys)]);let u=t,d=s*l;l==10&&(d=Ys[wi(d,Ys)]);do a.push(u),u=u+s,l==10&&!Ts.has(u)&&(u=Nt(u,Ts.get(s))),u>=d&&(s=u,d=s*l,l==10&&(d=Ys[wi(d,Ys)]));while(u<=n);return a}function ox(i,e,t,n,s,r,o){let l=i.scales[i.axes[e].scale].asinh,c=n>l?Yh(i,e,zn(l,t),n,s):[l],h=n>=0&&t<=0?[0]:[];return(t<-l?Yh(i,e,zn(l,-n),-t,s):[l]).reverse().map(d=>-d).concat(h,c)}var Np=/./,ax=/[12357]/,lx=/[125]/,jf=/1/,$h=(i,e,t,n)=>i.map((s,r)=>e==4&&s==0||r%n==0&&t.test(s.toExponential()[s<0?1:0])?s:null);function cx(i,e,t,n,s){let r=i.axes[t],o=r.scale,a=i.scales[o],l=i.valToPos,c=r._space,h=l(10,o),u=l(9,o)-h>=c?Np:l(7,o)-h>=c?ax:l(5,o)-h>=c?lx:jf;if(u==jf){let d=gn(l(1,o)-h);if(d<c)return $h(e.slice().reverse(),a.distr,u,pi(c/d)).reverse()}return $h(e,a.distr,u,1)}function hx(i,e,t,n,s){let r=i.axes[t],o=r.scale,a=r._space,l=i.valToPos,c=gn(l(1,o)-l(2,o));return c<a?$h(e.slice().reverse(),3,Np,pi(a/c)).reverse():e}function ux(i,e,t,n){return n==null?Qh:e==null?"":iu(e)}var Qf={show:!0,scale:"y",stroke:jh,space:30,gap:5,alignTo:1,size:50,labelGap:0,labelSize:30,labelFont:Lp,side:3,grid:au,ticks:Pp,border:Ip,font:lu,lineGap:Dp,rotate:0};function dx(i,e){let t=3+(i||1)*2;return Nt(t*e,3)}function fx(i,e){let{scale:t,idxs:n}=i.series[0],s=i._data[0],r=i.valToPos(s[n[0]],t,!0),o=i.valToPos(s[n[1]],t,!0),a=gn(o-r),l=i.series[e],c=a/(l.points.space*Mt);return n[1]-n[0]<=c}var ep={scale:null,auto:!0,sorted:0,min:Dt,max:-Dt},Up=(i,e,t,n,s)=>s,tp={show:!0,auto:!0,sorted:0,gaps:Up,alpha:1,facets:[cn({},ep,{scale:"x"}),cn({},ep,{scale:"y"})]},np={scale:"y",auto:!0,sorted:0,show:!0,spanGaps:!1,gaps:Up,alpha:1,points:{show:fx,filter:null},values:null,min:Dt,max:-Dt,idxs:[],path:null,clip:null};function px(i,e,t,n,s){return t/10}var Op={time:!0,auto:!0,distr:1,log:10,asinh:1,min:null,max:null,dir:1,ori:0},mx=cn({},Op,{time:!1,ori:1}),ip={};function Fp(i,e){let t=ip[i];return t||(t={key:i,plots:[],sub(n){t.plots.push(n)},unsub(n){t.plots=t.plots.filter(s=>s!=n)},pub(n,s,r,o,a,l,c){for(let h=0;h<t.plots.length;h++)t.plots[h]!=s&&t.plots[h].pub(n,s,r,o,a,l,c)}},i!=null&&(ip[i]=t)),t}var Br=1,Zh=2;function Js(i,e,t){let n=i.mode,s=i.series[e],r=n==2?i._data[e]:i._data,o=i.scales,a=i.bbox,l=r[0],c=n==2?r[1]:r[e],h=n==2?o[s.facets[0].scale]:o[i.series[0].scale],u=n==2?o[s.facets[1].scale]:o[s.scale],d=a.left,f=a.top,p=a.width,y=a.height,m=i.valToPosH,g=i.valToPosV;return h.ori==0?t(s,l,c,h,u,m,g,d,f,p,y,tl,zr,il,kp,Hp):t(s,l,c,h,u,g,m,f,d,y,p,nl,Hr,uu,zp,Vp)}function cu(i,e){let t=0,n=0,s=bt(i.bands,su);for(let r=0;r<s.length;r++){let o=s[r];o.series[0]==e?t=o.dir:o.series[1]==e&&(o.dir==1?n|=1:n|=2)}return[t,n==1?-1:n==2?1:n==3?2:0]}function gx(i,e,t,n,s){let r=i.mode,o=i.series[e],a=r==2?o.facets[1].scale:o.scale,l=i.scales[a];return s==-1?l.min:s==1?l.max:l.distr==3?l.dir==1?l.min:l.max:0}function ns(i,e,t,n,s,r){return Js(i,e,(o,a,l,c,h,u,d,f,p,y,m)=>{let g=o.pxRound,v=c.dir*(c.ori==0?1:-1),A=c.ori==0?zr:Hr,S,C;v==1?(S=t,C=n):(S=n,C=t);let T=g(u(a[S],c,y,f)),x=g(d(l[S],h,m,p)),E=g(u(a[C],c,y,f)),B=g(d(r==1?h.max:h.min,h,m,p)),N=new Path2D(s);return A(N,E,B),A(N,T,B),A(N,T,x),N})}function el(i,e,t,n,s,r){let o=null;if(i.length>0){o=new Path2D;let a=e==0?il:uu,l=t;for(let u=0;u<i.length;u++){let d=i[u];if(d[1]>d[0]){let f=d[0]-l;f>0&&a(o,l,n,f,n+r),l=d[1]}}let c=t+s-l,h=10;c>0&&a(o,l,n-h/2,c,n+r+h)}return o}function _x(i,e,t){let n=i[i.length-1];n&&n[0]==e?n[1]=t:i.push([e,t])}function hu(i,e,t,n,s,r,o){let a=[],l=i.length;for(let c=s==1?t:n;c>=t&&c<=n;c+=s)if(e[c]===null){let u=c,d=c;if(s==1)for(;++c<=n&&e[c]===null;)d=c;else for(;--c>=t&&e[c]===null;)d=c;let f=r(i[u]),p=d==u?f:r(i[d]),y=u-s;f=o<=0&&y>=0&&y<l?r(i[y]):f;let g=d+s;p=o>=0&&g>=0&&g<l?r(i[g]):p,p>=f&&a.push([f,p])}return a}function sp(i){return i==0?pp:i==1?mn:e=>qs(e,i)}function Bp(i){let e=i==0?tl:nl,t=i==0?(s,r,o,a,l,c)=>{s.arcTo(r,o,a,l,c)}:(s,r,o,a,l,c)=>{s.arcTo(o,r,l,a,c)},n=i==0?(s,r,o,a,l)=>{s.rect(r,o,a,l)}:(s,r,o,a,l)=>{s.rect(o,r,l,a)};return(s,r,o,a,l,c=0,h=0)=>{c==0&&h==0?n(s,r,o,a,l):(c=Ei(c,a/2,l/2),h=Ei(h,a/2,l/2),e(s,r+c,o),t(s,r+a,o,r+a,o+l,c),t(s,r+a,o+l,r,o+l,h),t(s,r,o+l,r,o,h),t(s,r,o,r+a,o,c),s.closePath())}}var tl=(i,e,t)=>{i.moveTo(e,t)},nl=(i,e,t)=>{i.moveTo(t,e)},zr=(i,e,t)=>{i.lineTo(e,t)},Hr=(i,e,t)=>{i.lineTo(t,e)},il=Bp(0),uu=Bp(1),kp=(i,e,t,n,s,r)=>{i.arc(e,t,n,s,r)},zp=(i,e,t,n,s,r)=>{i.arc(t,e,n,s,r)},Hp=(i,e,t,n,s,r,o)=>{i.bezierCurveTo(e,t,n,s,r,o)},Vp=(i,e,t,n,s,r,o)=>{i.bezierCurveTo(t,e,s,n,o,r)};function Gp(i){return(e,t,n,s,r)=>Js(e,t,(o,a,l,c,h,u,d,f,p,y,m)=>{let{pxRound:g,points:v}=o,A,S;c.ori==0?(A=tl,S=kp):(A=nl,S=zp);let C=Nt(v.width*Mt,3),T=(v.size-v.width)/2*Mt,x=Nt(T*2,3),E=new Path2D,B=new Path2D,{left:N,top:D,width:G,height:V}=e.bbox;il(B,N-x,D-x,G+x*2,V+x*2);let I=W=>{if(l[W]!=null){let $=g(u(a[W],c,y,f)),z=g(d(l[W],h,m,p));A(E,$+T,z),S(E,$,z,T,0,qa*2)}};if(r)r.forEach(I);else for(let W=n;W<=s;W++)I(W);return{stroke:C>0?E:null,fill:E,clip:B,flags:Br|Zh}})}function Wp(i){return(e,t,n,s,r,o)=>{n!=s&&(r!=n&&o!=n&&i(e,t,n),r!=s&&o!=s&&i(e,t,s),i(e,t,o))}}var xx=Wp(zr),vx=Wp(Hr);function Xp(i){let e=bt(i?.alignGaps,0);return(t,n,s,r)=>Js(t,n,(o,a,l,c,h,u,d,f,p,y,m)=>{[s,r]=Ka(l,s,r);let g=o.pxRound,v=V=>g(u(V,c,y,f)),A=V=>g(d(V,h,m,p)),S,C;c.ori==0?(S=zr,C=xx):(S=Hr,C=vx);let T=c.dir*(c.ori==0?1:-1),x={stroke:new Path2D,fill:null,clip:null,band:null,gaps:null,flags:Br},E=x.stroke,B=!1;if(r-s>=y*4){let V=de=>t.posToVal(de,c.key,!0),I=null,W=null,$,z,ce,K=v(a[T==1?s:r]),ee=v(a[s]),re=v(a[r]),fe=V(T==1?ee+1:re-1);for(let de=T==1?s:r;de>=s&&de<=r;de+=T){let te=a[de],ve=(T==1?te<fe:te>fe)?K:v(te),Re=l[de];ve==K?Re!=null?(z=Re,I==null?(S(E,ve,A(z)),$=I=W=z):z<I?I=z:z>W&&(W=z)):Re===null&&(B=!0):(I!=null&&C(E,K,A(I),A(W),A($),A(z)),Re!=null?(z=Re,S(E,ve,A(z)),I=W=$=z):(I=W=null,Re===null&&(B=!0)),K=ve,fe=V(K+T))}I!=null&&I!=W&&ce!=K&&C(E,K,A(I),A(W),A($),A(z))}else for(let V=T==1?s:r;V>=s&&V<=r;V+=T){let I=l[V];I===null?B=!0:I!=null&&S(E,v(a[V]),A(I))}let[D,G]=cu(t,n);if(o.fill!=null||D!=0){let V=x.fill=new Path2D(E),I=o.fillTo(t,n,o.min,o.max,D),W=A(I),$=v(a[s]),z=v(a[r]);T==-1&&([z,$]=[$,z]),S(V,z,W),S(V,$,W)}if(!o.spanGaps){let V=[];B&&V.push(...hu(a,l,s,r,T,v,e)),x.gaps=V=o.gaps(t,n,s,r,V),x.clip=el(V,c.ori,f,p,y,m)}return G!=0&&(x.band=G==2?[ns(t,n,s,r,E,-1),ns(t,n,s,r,E,1)]:ns(t,n,s,r,E,G)),x})}function yx(i){let e=bt(i.align,1),t=bt(i.ascDesc,!1),n=bt(i.alignGaps,0),s=bt(i.extend,!1);return(r,o,a,l)=>Js(r,o,(c,h,u,d,f,p,y,m,g,v,A)=>{[a,l]=Ka(u,a,l);let S=c.pxRound,{left:C,width:T}=r.bbox,x=ee=>S(p(ee,d,v,m)),E=ee=>S(y(ee,f,A,g)),B=d.ori==0?zr:Hr,N={stroke:new Path2D,fill:null,clip:null,band:null,gaps:null,flags:Br},D=N.stroke,G=d.dir*(d.ori==0?1:-1),V=E(u[G==1?a:l]),I=x(h[G==1?a:l]),W=I,$=I;s&&e==-1&&($=C,B(D,$,V)),B(D,I,V);for(let ee=G==1?a:l;ee>=a&&ee<=l;ee+=G){let re=u[ee];if(re==null)continue;let fe=x(h[ee]),de=E(re);e==1?B(D,fe,V):B(D,W,de),B(D,fe,de),V=de,W=fe}let z=W;s&&e==1&&(z=C+T,B(D,z,V));let[ce,K]=cu(r,o);if(c.fill!=null||ce!=0){let ee=N.fill=new Path2D(D),re=c.fillTo(r,o,c.min,c.max,ce),fe=E(re);B(ee,z,fe),B(ee,$,fe)}if(!c.spanGaps){let ee=[];ee.push(...hu(h,u,a,l,G,x,n));let re=c.width*Mt/2,fe=t||e==1?re:-re,de=t||e==-1?-re:re;ee.forEach(te=>{te[0]+=fe,te[1]+=de}),N.gaps=ee=c.gaps(r,o,a,l,ee),N.clip=el(ee,d.ori,m,g,v,A)}return K!=0&&(N.band=K==2?[ns(r,o,a,l,D,-1),ns(r,o,a,l,D,1)]:ns(r,o,a,l,D,K)),N})}function rp(i,e,t,n,s,r,o=Dt){if(i.length>1){let a=null;for(let l=0,c=1/0;l<i.length;l++)if(e[l]!==void 0){if(a!=null){let h=gn(i[l]-i[a]);h<c&&(c=h,o=gn(t(i[l],n,s,r)-t(i[a],n,s,r)))}a=l}}return o}function bx(i){i=i||Bo;let e=bt(i.size,[.6,Dt,1]),t=i.align||0,n=i.gap||0,s=i.radius;s=s==null?[0,0]:typeof s=="number"?[s,0]:s;let r=xt(s),o=1-e[0],a=bt(e[1],Dt),l=bt(e[2],1),c=bt(i.disp,Bo),h=bt(i.each,f=>{}),{fill:u,stroke:d}=c;return(f,p,y,m)=>Js(f,p,(g,v,A,S,C,T,x,E,B,N,D)=>{let G=g.pxRound,V=t,I=n*Mt,W=a*Mt,$=l*Mt,z,ce;S.ori==0?[z,ce]=r(f,p):[ce,z]=r(f,p);let K=S.dir*(S.ori==0?1:-1),ee=S.ori==0?il:uu,re=S.ori==0?h:(Pe,Ze,rt,we,Lt,Ve,Ye)=>{h(Pe,Ze,rt,Lt,we,Ye,Ve)},fe=bt(f.bands,su).find(Pe=>Pe.series[0]==p),de=fe!=null?fe.dir:0,te=g.fillTo(f,p,g.min,g.max,de),ge=G(x(te,C,D,B)),ve,Re,Me,Xe=N,st=G(g.width*Mt),Ge=!1,ut=null,at=null,nt=null,Wt=null;u!=null&&(st==0||d!=null)&&(Ge=!0,ut=u.values(f,p,y,m),at=new Map,new Set(ut).forEach(Pe=>{Pe!=null&&at.set(Pe,new Path2D)}),st>0&&(nt=d.values(f,p,y,m),Wt=new Map,new Set(nt).forEach(Pe=>{Pe!=null&&Wt.set(Pe,new Path2D)})));let{x0:Ft,size:nn}=c;if(Ft!=null&&nn!=null){V=1,v=Ft.values(f,p,y,m),Ft.unit==2&&(v=v.map(rt=>f.posToVal(E+rt*N,S.key,!0)));let Pe=nn.values(f,p,y,m);nn.unit==2?Re=Pe[0]*N:Re=T(Pe[0],S,N,E)-T(0,S,N,E),Xe=rp(v,A,T,S,N,E,Xe),Me=Xe-Re+I}else Xe=rp(v,A,T,S,N,E,Xe),Me=Xe*o+I,Re=Xe-Me;Me<1&&(Me=0),st>=Re/2&&(st=0),Me<5&&(G=pp);let Pt=Me>0,bn=Xe-Me-(Pt?st:0);Re=G(qh(bn,$,W)),ve=(V==0?Re/2:V==K?0:Re)-V*K*((V==0?I/2:0)+(Pt?st/2:0));let vt={stroke:null,fill:null,clip:null,band:null,gaps:null,flags:0},fn=Ge?null:new Path2D,$t=null;if(fe!=null)$t=f.data[fe.series[1]];else{let{y0:Pe,y1:Ze}=c;Pe!=null&&Ze!=null&&(A=Ze.values(f,p,y,m),$t=Pe.values(f,p,y,m))}let sn=z*Re,O=ce*Re;for(let Pe=K==1?y:m;Pe>=y&&Pe<=m;Pe+=K){let Ze=A[Pe];if(Ze==null)continue;if($t!=null){let q=$t[Pe]??0;if(Ze-q==0)continue;ge=x(q,C,D,B)}let rt=S.distr!=2||c!=null?v[Pe]:Pe,we=T(rt,S,N,E),Lt=x(bt(Ze,te),C,D,B),Ve=G(we-ve),Ye=G(zn(Lt,ge)),R=G(Ei(Lt,ge)),b=Ye-R;if(Ze!=null){let q=Ze<0?O:sn,ue=Ze<0?sn:O;Ge?(st>0&&nt[Pe]!=null&&ee(Wt.get(nt[Pe]),Ve,R+ei(st/2),Re,zn(0,b-st),q,ue),ut[Pe]!=null&&ee(at.get(ut[Pe]),Ve,R+ei(st/2),Re,zn(0,b-st),q,ue)):ee(fn,Ve,R+ei(st/2),Re,zn(0,b-st),q,ue),re(f,p,Pe,Ve-st/2,R,Re+st,b)}}return st>0?vt.stroke=Ge?Wt:fn:Ge||(vt._fill=g.width==0?g._fill:g._stroke??g._fill,vt.width=0),vt.fill=Ge?at:fn,vt})}function Sx(i,e){let t=bt(e?.alignGaps,0);return(n,s,r,o)=>Js(n,s,(a,l,c,h,u,d,f,p,y,m,g)=>{[r,o]=Ka(c,r,o);let v=a.pxRound,A=z=>v(d(z,h,m,p)),S=z=>v(f(z,u,g,y)),C,T,x;h.ori==0?(C=tl,x=zr,T=Hp):(C=nl,x=Hr,T=Vp);let E=h.dir*(h.ori==0?1:-1),B=A(l[E==1?r:o]),N=B,D=[],G=[];for(let z=E==1?r:o;z>=r&&z<=o;z+=E)if(c[z]!=null){let K=l[z],ee=A(K);D.push(N=ee),G.push(S(c[z]))}let V={stroke:i(D,G,C,x,T,v),fill:null,clip:null,band:null,gaps:null,flags:Br},I=V.stroke,[W,$]=cu(n,s);if(a.fill!=null||W!=0){let z=V.fill=new Path2D(I),ce=a.fillTo(n,s,a.min,a.max,W),K=S(ce);x(z,N,K),x(z,B,K)}if(!a.spanGaps){let z=[];z.push(...hu(l,c,r,o,E,A,t)),V.gaps=z=a.gaps(n,s,r,o,z),V.clip=el(z,h.ori,p,y,m,g)}return $!=0&&(V.band=$==2?[ns(n,s,r,o,I,-1),ns(n,s,r,o,I,1)]:ns(n,s,r,o,I,$)),V})}function Mx(i){return Sx(wx,i)}function wx(i,e,t,n,s,r){let o=i.length;if(o<2)return null;let a=new Path2D;if(t(a,i[0],e[0]),o==2)n(a,i[1],e[1]);else{let l=Array(o),c=Array(o-1),h=Array(o-1),u=Array(o-1);for(let d=0;d<o-1;d++)h[d]=e[d+1]-e[d],u[d]=i[d+1]-i[d],c[d]=h[d]/u[d];l[0]=c[0];for(let d=1;d<o-1;d++)c[d]===0||c[d-1]===0||c[d-1]>0!=c[d]>0?l[d]=0:(l[d]=3*(u[d-1]+u[d])/((2*u[d]+u[d-1])/c[d-1]+(u[d]+2*u[d-1])/c[d]),isFinite(l[d])||(l[d]=0));l[o-1]=c[o-2];for(let d=0;d<o-1;d++)s(a,i[d]+u[d]/3,e[d]+l[d]*u[d]/3,i[d+1]-u[d]/3,e[d+1]-l[d+1]*u[d]/3,i[d+1],e[d+1])}return a}var Kh=new Set;function op(){for(let i of Kh)i.syncRect(!0)}kr&&(Zs(s_,Nr,op),Zs(r_,Nr,op,!0),Zs(Ya,Nr,()=>{_n.pxRatio=Mt}));var Ex=Xp(),Tx=Gp();function ap(i,e,t,n){return(n?[i[0],i[1]].concat(i.slice(2)):[i[0]].concat(i.slice(1))).map((r,o)=>Jh(r,o,e,t))}function Ax(i,e){return i.map((t,n)=>n==0?{}:cn({},e,t))}function Jh(i,e,t,n){return cn({},e==0?t:n,i)}function qp(i,e,t){return e==null?Or:[e,t]}var Rx=qp;function Cx(i,e,t){return e==null?Or:$a(e,t,nu,!0)}function Yp(i,e,t,n){return e==null?Or:Ja(e,t,i.scales[n].log,!1)}var Px=Yp;function $p(i,e,t,n){return e==null?Or:tu(e,t,i.scales[n].log,!1)}var Ix=$p;function Lx(i,e,t,n,s){let r=zn(kf(i),kf(e)),o=e-i,a=wi(s/n*o,t);do{let l=t[a],c=n*l/o;if(c>=s&&r+(l<5?Ts.get(l):0)<=17)return[l,c]}while(++a<t.length);return[0,0]}function lp(i){let e,t;return i=i.replace(/(\d+)px/,(n,s)=>(e=mn((t=+s)*Mt))+"px"),[i,e,t]}function Dx(i){i.show&&[i.font,i.labelFont].forEach(e=>{let t=Nt(e[2]*Mt,1);e[0]=e[0].replace(/[0-9.]+px/,t+"px"),e[1]=t})}function _n(i,e,t){let n={mode:bt(i.mode,1)},s=n.mode;function r(_,M,P,L){let H=M.valToPct(_);return L+P*(M.dir==-1?1-H:H)}function o(_,M,P,L){let H=M.valToPct(_);return L+P*(M.dir==-1?H:1-H)}function a(_,M,P,L){return M.ori==0?r(_,M,P,L):o(_,M,P,L)}n.valToPosH=r,n.valToPosV=o;let l=!1;n.status=0;let c=n.root=fi(z0);if(i.id!=null&&(c.id=i.id),Qn(c,i.class),i.title){let _=fi(G0,c);_.textContent=i.title}let h=Mi("canvas"),u=n.ctx=h.getContext("2d"),d=fi(W0,c);Zs("click",d,_=>{_.target===p&&(kt!=Ar||Xt!=Rr)&&Cn.click(n,_)},!0);let f=n.under=fi(X0,d);d.appendChild(h);let p=n.over=fi(q0,d);i=Fr(i);let y=+bt(i.pxAlign,1),m=sp(y);(i.plugins||[]).forEach(_=>{_.opts&&(i=_.opts(n,i)||i)});let g=i.ms||.001,v=n.series=s==1?ap(i.series||[],Jf,np,!1):Ax(i.series||[null],tp),A=n.axes=ap(i.axes||[],Kf,Qf,!0),S=n.scales={},C=n.bands=i.bands||[];C.forEach(_=>{_.fill=xt(_.fill||null),_.dir=bt(_.dir,-1)});let T=s==2?v[1].facets[0].scale:v[0].scale,x={axes:Qi,series:ft},E=(i.drawOrder||["axes","series"]).map(_=>x[_]);function B(_){let M=_.distr==3?P=>ts(P>0?P:_.clamp(n,P,_.min,_.max,_.key)):_.distr==4?P=>Bh(P,_.asinh):_.distr==100?P=>_.fwd(P):P=>P;return P=>{let L=M(P),{_min:H,_max:J}=_,le=J-H;return(L-H)/le}}function N(_){let M=S[_];if(M==null){let P=(i.scales||Bo)[_]||Bo;if(P.from!=null){N(P.from);let L=cn({},S[P.from],P,{key:_});L.valToPct=B(L),S[_]=L}else{M=S[_]=cn({},_==T?Op:mx,P),M.key=_;let L=M.time,H=M.range,J=Es(H);if((_!=T||s==2&&!L)&&(J&&(H[0]==null||H[1]==null)&&(H={min:H[0]==null?Of:{mode:1,hard:H[0],soft:H[0]},max:H[1]==null?Of:{mode:1,hard:H[1],soft:H[1]}},J=!1),!J&&Qa(H))){let le=H;H=(pe,be,Ne)=>be==null?Or:$a(be,Ne,le)}M.range=xt(H||(L?Rx:_==T?M.distr==3?Px:M.distr==4?Ix:qp:M.distr==3?Yp:M.distr==4?$p:Cx)),M.auto=xt(J?!1:M.auto),M.clamp=xt(M.clamp||px),M._min=M._max=null,M.valToPct=B(M)}}}N("x"),N("y"),s==1&&v.forEach(_=>{N(_.scale)}),A.forEach(_=>{N(_.scale)});for(let _ in i.scales)N(_);let D=S[T],G=D.distr,V,I;D.ori==0?(Qn(c,H0),V=r,I=o):(Qn(c,V0),V=o,I=r);let W={};for(let _ in S){let M=S[_];(M.min!=null||M.max!=null)&&(W[_]={min:M.min,max:M.max},M.min=M.max=null)}let $=i.tzDate||(_=>new Date(mn(_/g))),z=i.fmtDate||ru,ce=g==1?H_($):W_($),K=Yf($,qf(g==1?z_:G_,z)),ee=Zf($,$f(q_,z)),re=[],fe=n.legend=cn({},Z_,i.legend),de=n.cursor=cn({},tx,{drag:{y:s==2}},i.cursor),te=fe.show,ge=de.show,ve=fe.markers;fe.idxs=re,ve.width=xt(ve.width),ve.dash=xt(ve.dash),ve.stroke=xt(ve.stroke),ve.fill=xt(ve.fill);let Re,Me,Xe,st=[],Ge=[],ut,at=!1,nt={};if(fe.live){let _=v[1]?v[1].values:null;at=_!=null,ut=at?_(n,1,0):{_:0};for(let M in ut)nt[M]=Qh}if(te)if(Re=Mi("table",j0,c),Xe=Mi("tbody",null,Re),fe.mount(n,Re),at){Me=Mi("thead",null,Re,Xe);let _=Mi("tr",null,Me);Mi("th",null,_);for(var Wt in ut)Mi("th",Mf,_).textContent=Wt}else Qn(Re,e_),fe.live&&Qn(Re,Q0);let Ft={show:!0},nn={show:!1};function Pt(_,M){if(M==0&&(at||!fe.live||s==2))return Or;let P=[],L=Mi("tr",t_,Xe,Xe.childNodes[M]);Qn(L,_.class),_.show||Qn(L,$s);let H=Mi("th",null,L);if(ve.show){let pe=fi(n_,H);if(M>0){let be=ve.width(n,M);be&&(pe.style.border=be+"px "+ve.dash(n,M)+" "+ve.stroke(n,M)),pe.style.background=ve.fill(n,M)}}let J=fi(Mf,H);_.label instanceof HTMLElement?J.appendChild(_.label):J.textContent=_.label,M>0&&(ve.show||(J.style.color=_.width>0?ve.stroke(n,M):ve.fill(n,M)),vt("click",H,pe=>{if(de._lock)return;Je(pe);let be=v.indexOf(_);if((pe.ctrlKey||pe.metaKey)!=fe.isolate){let Ne=v.some((Ue,Fe)=>Fe>0&&Fe!=be&&Ue.show);v.forEach((Ue,Fe)=>{Fe>0&&Fi(Fe,Ne?Fe==be?Ft:nn:Ft,!0,ln.setSeries)})}else Fi(be,{show:!_.show},!0,ln.setSeries)},!1),je&&vt(Af,H,pe=>{de._lock||(Je(pe),Fi(v.indexOf(_),Pr,!0,ln.setSeries))},!1));for(var le in ut){let pe=Mi("td",i_,L);pe.textContent="--",P.push(pe)}return[L,P]}let bn=new Map;function vt(_,M,P,L=!0){let H=bn.get(M)||{},J=de.bind[_](n,M,P,L);J&&(Zs(_,M,H[_]=J),bn.set(M,H))}function fn(_,M,P){let L=bn.get(M)||{};for(let H in L)(_==null||H==_)&&(Xh(H,M,L[H]),delete L[H]);_==null&&bn.delete(M)}let $t=0,sn=0,O=0,Pe=0,Ze=0,rt=0,we=Ze,Lt=rt,Ve=O,Ye=Pe,R=0,b=0,q=0,ue=0;n.bbox={};let ae=!1,xe=!1,ye=!1,ne=!1,se=!1,me=!1;function U(_,M,P){(P||_!=n.width||M!=n.height)&&oe(_,M),lt(!1),ye=!0,xe=!0,In()}function oe(_,M){n.width=$t=O=_,n.height=sn=Pe=M,Ze=rt=0,Se(),We();let P=n.bbox;R=P.left=qs(Ze*Mt,.5),b=P.top=qs(rt*Mt,.5),q=P.width=qs(O*Mt,.5),ue=P.height=qs(Pe*Mt,.5)}let ie=3;function Ee(){let _=!1,M=0;for(;!_;){M++;let P=wr(M),L=Oi(M);_=M==ie||P&&L,_||(oe(n.width,n.height),xe=!0)}}function _e({width:_,height:M}){U(_,M)}n.setSize=_e;function Se(){let _=!1,M=!1,P=!1,L=!1;A.forEach((H,J)=>{if(H.show&&H._show){let{side:le,_size:pe}=H,be=le%2,Ne=H.label!=null?H.labelSize:0,Ue=pe+Ne;Ue>0&&(be?(O-=Ue,le==3?(Ze+=Ue,L=!0):P=!0):(Pe-=Ue,le==0?(rt+=Ue,_=!0):M=!0))}}),Ni[0]=_,Ni[1]=P,Ni[2]=M,Ni[3]=L,O-=vi[1]+vi[3],Ze+=vi[3],Pe-=vi[2]+vi[0],rt+=vi[0]}function We(){let _=Ze+O,M=rt+Pe,P=Ze,L=rt;function H(J,le){switch(J){case 1:return _+=le,_-le;case 2:return M+=le,M-le;case 3:return P-=le,P+le;case 0:return L-=le,L+le}}A.forEach((J,le)=>{if(J.show&&J._show){let pe=J.side;J._pos=H(pe,J._size),J.label!=null&&(J._lpos=H(pe,J.labelSize))}})}if(de.dataIdx==null){let _=de.hover,M=_.skip=new Set(_.skip??[]);M.add(void 0);let P=_.prox=xt(_.prox),L=_.bias??(_.bias=0);de.dataIdx=(H,J,le,pe)=>{if(J==0)return le;let be=le,Ne=P(H,J,le,pe)??Dt,Ue=Ne>=0&&Ne<Dt,Fe=D.ori==0?O:Pe,it=de.left,St=e[0],yt=e[J];if(M.has(yt[le])){be=null;let mt=null,Ke=null,qe;if(L==0||L==-1)for(qe=le;mt==null&&qe-- >0;)M.has(yt[qe])||(mt=qe);if(L==0||L==1)for(qe=le;Ke==null&&qe++<yt.length;)M.has(yt[qe])||(Ke=qe);if(mt!=null||Ke!=null)if(Ue){let Ht=mt==null?-1/0:V(St[mt],D,Fe,0),Jt=Ke==null?1/0:V(St[Ke],D,Fe,0),En=it-Ht,It=Jt-it;En<=It?En<=Ne&&(be=mt):It<=Ne&&(be=Ke)}else be=Ke==null?mt:mt==null?Ke:le-mt<=Ke-le?mt:Ke}else Ue&&gn(it-V(St[le],D,Fe,0))>Ne&&(be=null);return be}}let Je=_=>{de.event=_};de.idxs=re,de._lock=!1;let he=de.points;he.show=xt(he.show),he.size=xt(he.size),he.stroke=xt(he.stroke),he.width=xt(he.width),he.fill=xt(he.fill);let Be=n.focus=cn({},i.focus||{alpha:.3},de.focus),je=Be.prox>=0,Ce=je&&he.one,ot=[],Bt=[],Un=[];function Eo(_,M){let P=he.show(n,M);if(P instanceof HTMLElement)return Qn(P,J0),Qn(P,_.class),Hi(P,-10,-10,O,Pe),p.insertBefore(P,ot[M]),P}function br(_,M){if(s==1||M>0){let P=s==1&&S[_.scale].time,L=_.value;_.value=P?Vf(L)?Zf($,$f(L,z)):L||ee:L||ux,_.label=_.label||(P?ix:nx)}if(Ce||M>0){_.width=_.width==null?1:_.width,_.paths=_.paths||Ex||m_,_.fillTo=xt(_.fillTo||gx),_.pxAlign=+bt(_.pxAlign,y),_.pxRound=sp(_.pxAlign),_.stroke=xt(_.stroke||null),_.fill=xt(_.fill||null),_._stroke=_._fill=_._paths=_._focus=null;let P=dx(zn(1,_.width),1),L=_.points=cn({},{size:P,width:zn(1,P*.2),stroke:_.stroke,space:P*2,paths:Tx,_stroke:null,_fill:null},_.points);L.show=xt(L.show),L.filter=xt(L.filter),L.fill=xt(L.fill),L.stroke=xt(L.stroke),L.paths=xt(L.paths),L.pxAlign=_.pxAlign}if(te){let P=Pt(_,M);st.splice(M,0,P[0]),Ge.splice(M,0,P[1]),fe.values.push(null)}if(ge){re.splice(M,0,null);let P=null;Ce?M==0&&(P=Eo(_,M)):M>0&&(P=Eo(_,M)),ot.splice(M,0,P),Bt.splice(M,0,0),Un.splice(M,0,0)}wn("addSeries",M)}function wh(_,M){M=M??v.length,_=s==1?Jh(_,M,Jf,np):Jh(_,M,{},tp),v.splice(M,0,_),br(v[M],M)}n.addSeries=wh;function ka(_){if(v.splice(_,1),te){fe.values.splice(_,1),Ge.splice(_,1);let M=st.splice(_,1)[0];fn(null,M.firstChild),M.remove()}ge&&(re.splice(_,1),ot.splice(_,1)[0].remove(),Bt.splice(_,1),Un.splice(_,1)),wn("delSeries",_)}n.delSeries=ka;let Ni=[!1,!1,!1,!1];function Ki(_,M){if(_._show=_.show,_.show){let P=_.side%2,L=S[_.scale];L==null&&(_.scale=P?v[1].scale:T,L=S[_.scale]);let H=L.time;_.size=xt(_.size),_.space=xt(_.space),_.rotate=xt(_.rotate),Es(_.incrs)&&_.incrs.forEach(le=>{!Ts.has(le)&&Ts.set(le,_p(le))}),_.incrs=xt(_.incrs||(L.distr==2?F_:H?g==1?k_:V_:Ys)),_.splits=xt(_.splits||(H&&L.distr==1?ce:L.distr==3?Yh:L.distr==4?ox:rx)),_.stroke=xt(_.stroke),_.grid.stroke=xt(_.grid.stroke),_.ticks.stroke=xt(_.ticks.stroke),_.border.stroke=xt(_.border.stroke);let J=_.values;_.values=Es(J)&&!Es(J[0])?xt(J):H?Es(J)?Yf($,qf(J,z)):Vf(J)?X_($,J):J||K:J||sx,_.filter=xt(_.filter||(L.distr>=3&&L.log==10?cx:L.distr==3&&L.log==2?hx:mp)),_.font=lp(_.font),_.labelFont=lp(_.labelFont),_._size=_.size(n,null,M,0),_._space=_._rotate=_._incrs=_._found=_._splits=_._values=null,_._size>0&&(Ni[M]=!0,_._el=fi(Y0,d))}}function Ji(_,M,P,L){let[H,J,le,pe]=P,be=M%2,Ne=0;return be==0&&(pe||J)&&(Ne=M==0&&!H||M==2&&!le?mn(Kf.size/3):0),be==1&&(H||le)&&(Ne=M==1&&!J||M==3&&!pe?mn(Qf.size/2):0),Ne}let To=n.padding=(i.padding||[Ji,Ji,Ji,Ji]).map(_=>xt(bt(_,Ji))),vi=n._padding=To.map((_,M)=>_(n,M,Ni,0)),Zt,Qt=null,en=null,Ui=s==1?v[0].idxs:null,Zn=null,vs=!1;function Ao(_,M){if(e=_??[],n.data=n._data=e,s==2){Zt=0;for(let P=1;P<v.length;P++)Zt+=e[P][0].length}else{e.length==0&&(n.data=n._data=e=[[]]),Zn=e[0],Zt=Zn.length;let P=e;if(G==2){P=e.slice();let L=P[0]=Array(Zt);for(let H=0;H<Zt;H++)L[H]=H}n._data=e=P}if(lt(!0),wn("setData"),G==2&&(ye=!0),M!==!1){let P=D;P.auto(n,vs)?Ro():Ss(T,P.min,P.max),ne=ne||de.left>=0,me=!0,In()}}n.setData=Ao;function Ro(){vs=!0;let _,M;s==1&&(Zt>0?(Qt=Ui[0]=0,en=Ui[1]=Zt-1,_=e[0][Qt],M=e[0][en],G==2?(_=Qt,M=en):_==M&&(G==3?[_,M]=Ja(_,_,D.log,!1):G==4?[_,M]=tu(_,_,D.log,!1):D.time?M=_+mn(86400/g):[_,M]=$a(_,M,nu,!0))):(Qt=Ui[0]=_=null,en=Ui[1]=M=null)),Ss(T,_,M)}let Sr,ys,Mr,w,k,Q,Y,Z,Te,Ie;function Ae(_,M,P,L,H,J){_??(_=Ef),P??(P=su),L??(L="butt"),H??(H=Ef),J??(J="round"),_!=Sr&&(u.strokeStyle=Sr=_),H!=ys&&(u.fillStyle=ys=H),M!=Mr&&(u.lineWidth=Mr=M),J!=k&&(u.lineJoin=k=J),L!=Q&&(u.lineCap=Q=L),P!=w&&u.setLineDash(w=P)}function Le(_,M,P,L){M!=ys&&(u.fillStyle=ys=M),_!=Y&&(u.font=Y=_),P!=Z&&(u.textAlign=Z=P),L!=Te&&(u.textBaseline=Te=L)}function He(_,M,P,L,H=0){if(L.length>0&&_.auto(n,vs)&&(M==null||M.min==null)){let J=bt(Qt,0),le=bt(en,L.length-1),pe=P.min==null?c_(L,J,le,H,_.distr==3):[P.min,P.max];_.min=Ei(_.min,P.min=pe[0]),_.max=zn(_.max,P.max=pe[1])}}let Qe={min:null,max:null};function dt(){for(let L in S){let H=S[L];W[L]==null&&(H.min==null||W[T]!=null&&H.auto(n,vs))&&(W[L]=Qe)}for(let L in S){let H=S[L];W[L]==null&&H.from!=null&&W[H.from]!=null&&(W[L]=Qe)}W[T]!=null&&lt(!0);let _={};for(let L in W){let H=W[L];if(H!=null){let J=_[L]=Fr(S[L],x_);if(H.min!=null)cn(J,H);else if(L!=T||s==2)if(Zt==0&&J.from==null){let le=J.range(n,null,null,L);J.min=le[0],J.max=le[1]}else J.min=Dt,J.max=-Dt}}if(Zt>0){v.forEach((L,H)=>{if(s==1){let J=L.scale,le=W[J];if(le==null)return;let pe=_[J];if(H==0){let be=pe.range(n,pe.min,pe.max,J);pe.min=be[0],pe.max=be[1],Qt=wi(pe.min,e[0]),en=wi(pe.max,e[0]),en-Qt>1&&(e[0][Qt]<pe.min&&Qt++,e[0][en]>pe.max&&en--),L.min=Zn[Qt],L.max=Zn[en]}else L.show&&L.auto&&He(pe,le,L,e[H],L.sorted);L.idxs[0]=Qt,L.idxs[1]=en}else if(H>0&&L.show&&L.auto){let[J,le]=L.facets,pe=J.scale,be=le.scale,[Ne,Ue]=e[H],Fe=_[pe],it=_[be];Fe!=null&&He(Fe,W[pe],J,Ne,J.sorted),it!=null&&He(it,W[be],le,Ue,le.sorted),L.min=le.min,L.max=le.max}});for(let L in _){let H=_[L],J=W[L];if(H.from==null&&(J==null||J.min==null)){let le=H.range(n,H.min==Dt?null:H.min,H.max==-Dt?null:H.max,L);H.min=le[0],H.max=le[1]}}}for(let L in _){let H=_[L];if(H.from!=null){let J=_[H.from];if(J.min==null)H.min=H.max=null;else{let le=H.range(n,J.min,J.max,L);H.min=le[0],H.max=le[1]}}}let M={},P=!1;for(let L in _){let H=_[L],J=S[L];if(J.min!=H.min||J.max!=H.max){J.min=H.min,J.max=H.max;let le=J.distr;J._min=le==3?ts(J.min):le==4?Bh(J.min,J.asinh):le==100?J.fwd(J.min):J.min,J._max=le==3?ts(J.max):le==4?Bh(J.max,J.asinh):le==100?J.fwd(J.max):J.max,M[L]=P=!0}}if(P){v.forEach((L,H)=>{s==2?H>0&&M.y&&(L._paths=null):M[L.scale]&&(L._paths=null)});for(let L in M)ye=!0,wn("setScale",L);ge&&de.left>=0&&(ne=me=!0)}for(let L in W)W[L]=null}function ke(_){let M=qh(Qt-1,0,Zt-1),P=qh(en+1,0,Zt-1);for(;_[M]==null&&M>0;)M--;for(;_[P]==null&&P<Zt-1;)P++;return[M,P]}function ft(){if(Zt>0){let _=v.some(M=>M._focus)&&Ie!=Be.alpha;_&&(u.globalAlpha=Ie=Be.alpha),v.forEach((M,P)=>{if(P>0&&M.show&&(Yt(P,!1),Yt(P,!0),M._paths==null)){let L=Ie;Ie!=M.alpha&&(u.globalAlpha=Ie=M.alpha);let H=s==2?[0,e[P][0].length-1]:ke(e[P]);M._paths=M.paths(n,P,H[0],H[1]),Ie!=L&&(u.globalAlpha=Ie=L)}}),v.forEach((M,P)=>{if(P>0&&M.show){let L=Ie;Ie!=M.alpha&&(u.globalAlpha=Ie=M.alpha),M._paths!=null&&At(P,!1);{let H=M._paths!=null?M._paths.gaps:null,J=M.points.show(n,P,Qt,en,H),le=M.points.filter(n,P,J,H);(J||le)&&(M.points._paths=M.points.paths(n,P,Qt,en,le),At(P,!0))}Ie!=L&&(u.globalAlpha=Ie=L),wn("drawSeries",P)}}),_&&(u.globalAlpha=Ie=1)}}function Yt(_,M){let P=M?v[_].points:v[_];P._stroke=P.stroke(n,_),P._fill=P.fill(n,_)}function At(_,M){let P=M?v[_].points:v[_],{stroke:L,fill:H,clip:J,flags:le,_stroke:pe=P._stroke,_fill:be=P._fill,_width:Ne=P.width}=P._paths;Ne=Nt(Ne*Mt,3);let Ue=null,Fe=Ne%2/2;M&&be==null&&(be=Ne>0?"#fff":pe);let it=P.pxAlign==1&&Fe>0;if(it&&u.translate(Fe,Fe),!M){let St=R-Ne/2,yt=b-Ne/2,mt=q+Ne,Ke=ue+Ne;Ue=new Path2D,Ue.rect(St,yt,mt,Ke)}M?Oe(pe,Ne,P.dash,P.cap,be,L,H,le,J):Rt(_,pe,Ne,P.dash,P.cap,be,L,H,le,Ue,J),it&&u.translate(-Fe,-Fe)}function Rt(_,M,P,L,H,J,le,pe,be,Ne,Ue){let Fe=!1;be!=0&&C.forEach((it,St)=>{if(it.series[0]==_){let yt=v[it.series[1]],mt=e[it.series[1]],Ke=(yt._paths||Bo).band;Es(Ke)&&(Ke=it.dir==1?Ke[0]:Ke[1]);let qe,Ht=null;yt.show&&Ke&&u_(mt,Qt,en)?(Ht=it.fill(n,St)||J,qe=yt._paths.clip):Ke=null,Oe(M,P,L,H,Ht,le,pe,be,Ne,Ue,qe,Ke),Fe=!0}}),Fe||Oe(M,P,L,H,J,le,pe,be,Ne,Ue)}let pn=Br|Zh;function Oe(_,M,P,L,H,J,le,pe,be,Ne,Ue,Fe){Ae(_,M,P,L,H),(be||Ne||Fe)&&(u.save(),be&&u.clip(be),Ne&&u.clip(Ne)),Fe?(pe&pn)==pn?(u.clip(Fe),Ue&&u.clip(Ue),_t(H,le),rn(_,J,M)):pe&Zh?(_t(H,le),u.clip(Fe),rn(_,J,M)):pe&Br&&(u.save(),u.clip(Fe),Ue&&u.clip(Ue),_t(H,le),u.restore(),rn(_,J,M)):(_t(H,le),rn(_,J,M)),(be||Ne||Fe)&&u.restore()}function rn(_,M,P){P>0&&(M instanceof Map?M.forEach((L,H)=>{u.strokeStyle=Sr=H,u.stroke(L)}):M!=null&&_&&u.stroke(M))}function _t(_,M){M instanceof Map?M.forEach((P,L)=>{u.fillStyle=ys=L,u.fill(P)}):M!=null&&_&&u.fill(M)}function ji(_,M,P,L){let H=A[_],J;if(L<=0)J=[0,0];else{let le=H._space=H.space(n,_,M,P,L),pe=H._incrs=H.incrs(n,_,M,P,L,le);J=Lx(M,P,pe,L,le)}return H._found=J}function on(_,M,P,L,H,J,le,pe,be,Ne){let Ue=le%2/2;y==1&&u.translate(Ue,Ue),Ae(pe,le,be,Ne,pe),u.beginPath();let Fe,it,St,yt,mt=H+(L==0||L==3?-J:J);P==0?(it=H,yt=mt):(Fe=H,St=mt);for(let Ke=0;Ke<_.length;Ke++)M[Ke]!=null&&(P==0?Fe=St=_[Ke]:it=yt=_[Ke],u.moveTo(Fe,it),u.lineTo(St,yt));u.stroke(),y==1&&u.translate(-Ue,-Ue)}function wr(_){let M=!0;return A.forEach((P,L)=>{if(!P.show)return;let H=S[P.scale];if(H.min==null){P._show&&(M=!1,P._show=!1,lt(!1));return}else P._show||(M=!1,P._show=!0,lt(!1));let J=P.side,le=J%2,{min:pe,max:be}=H,[Ne,Ue]=ji(L,pe,be,le==0?O:Pe);if(Ue==0)return;let Fe=H.distr==2,it=P._splits=P.splits(n,L,pe,be,Ne,Ue,Fe),St=H.distr==2?it.map(qe=>Zn[qe]):it,yt=H.distr==2?Zn[it[1]]-Zn[it[0]]:Ne,mt=P._values=P.values(n,P.filter(n,St,L,Ue,yt),L,Ue,yt);P._rotate=J==2?P.rotate(n,mt,L,Ue):0;let Ke=P._size;P._size=pi(P.size(n,mt,L,_)),Ke!=null&&P._size!=Ke&&(M=!1)}),M}function Oi(_){let M=!0;return To.forEach((P,L)=>{let H=P(n,L,Ni,_);H!=vi[L]&&(M=!1),vi[L]=H}),M}function Qi(){for(let _=0;_<A.length;_++){let M=A[_];if(!M.show||!M._show)continue;let P=M.side,L=P%2,H,J,le=M.stroke(n,_),pe=P==0||P==3?-1:1,[be,Ne]=M._found;if(M.label!=null){let Bn=M.labelGap*pe,jn=mn((M._lpos+Bn)*Mt);Le(M.labelFont[0],le,"center",P==2?"top":wf),u.save(),L==1?(H=J=0,u.translate(jn,mn(b+ue/2)),u.rotate((P==3?-qa:qa)/2)):(H=mn(R+q/2),J=jn);let Xs=fp(M.label)?M.label(n,_,be,Ne):M.label;u.fillText(Xs,H,J),u.restore()}if(Ne==0)continue;let Ue=S[M.scale],Fe=L==0?q:ue,it=L==0?R:b,St=M._splits,yt=Ue.distr==2?St.map(Bn=>Zn[Bn]):St,mt=Ue.distr==2?Zn[St[1]]-Zn[St[0]]:be,Ke=M.ticks,qe=M.border,Ht=Ke.show?Ke.size:0,Jt=mn(Ht*Mt),En=mn((M.alignTo==2?M._size-Ht-M.gap:M.gap)*Mt),It=M._rotate*-qa/180,jt=m(M._pos*Mt),Kn=(Jt+En)*pe,Fn=jt+Kn;J=L==0?Fn:0,H=L==1?Fn:0;let ui=M.font[0],yi=M.align==1?Lr:M.align==2?Uh:It>0?Lr:It<0?Uh:L==0?"center":P==3?Uh:Lr,ki=It||L==1?"middle":P==2?"top":wf;Le(ui,le,yi,ki);let Jn=M.font[1]*M.lineGap,di=St.map(Bn=>m(a(Bn,Ue,Fe,it))),bi=M._values;for(let Bn=0;Bn<bi.length;Bn++){let jn=bi[Bn];if(jn!=null){L==0?H=di[Bn]:J=di[Bn],jn=""+jn;let Xs=jn.indexOf(`
`)==-1?[jn]:jn.split(/\n/gm);for(let kn=0;kn<Xs.length;kn++){let yf=Xs[kn];It?(u.save(),u.translate(H,J+kn*Jn),u.rotate(It),u.fillText(yf,0,0),u.restore()):u.fillText(yf,H,J+kn*Jn)}}}Ke.show&&on(di,Ke.filter(n,yt,_,Ne,mt),L,P,jt,Jt,Nt(Ke.width*Mt,3),Ke.stroke(n,_),Ke.dash,Ke.cap);let zi=M.grid;zi.show&&on(di,zi.filter(n,yt,_,Ne,mt),L,L==0?2:1,L==0?b:R,L==0?ue:q,Nt(zi.width*Mt,3),zi.stroke(n,_),zi.dash,zi.cap),qe.show&&on([jt],[1],L==0?1:0,L==0?1:2,L==1?b:R,L==1?ue:q,Nt(qe.width*Mt,3),qe.stroke(n,_),qe.dash,qe.cap)}wn("drawAxes")}function lt(_){v.forEach((M,P)=>{P>0&&(M._paths=null,_&&(s==1?(M.min=null,M.max=null):M.facets.forEach(L=>{L.min=null,L.max=null})))})}let Kt=!1,On=!1,Ct=[];function an(){On=!1;for(let _=0;_<Ct.length;_++)wn(...Ct[_]);Ct.length=0}function In(){Kt||(E_(tf),Kt=!0)}function za(_,M=!1){Kt=!0,On=M,_(n),tf(),M&&Ct.length>0&&queueMicrotask(an)}n.batch=za;function tf(){if(ae&&(dt(),ae=!1),ye&&(Ee(),ye=!1),xe){if(Vt(f,Lr,Ze),Vt(f,"top",rt),Vt(f,No,O),Vt(f,Uo,Pe),Vt(p,Lr,Ze),Vt(p,"top",rt),Vt(p,No,O),Vt(p,Uo,Pe),Vt(d,No,$t),Vt(d,Uo,sn),h.width=mn($t*Mt),h.height=mn(sn*Mt),A.forEach(({_el:_,_show:M,_size:P,_pos:L,side:H})=>{if(_!=null)if(M){let J=H===3||H===0?P:0,le=H%2==1;Vt(_,le?"left":"top",L-J),Vt(_,le?"width":"height",P),Vt(_,le?"top":"left",le?rt:Ze),Vt(_,le?"height":"width",le?Pe:O),Wh(_,$s)}else Qn(_,$s)}),Sr=ys=Mr=k=Q=Y=Z=Te=w=null,Ie=1,Io(!0),Ze!=we||rt!=Lt||O!=Ve||Pe!=Ye){lt(!1);let _=O/Ve,M=Pe/Ye;if(ge&&!ne&&de.left>=0){de.left*=_,de.top*=M,Er&&Hi(Er,mn(de.left),0,O,Pe),Tr&&Hi(Tr,0,mn(de.top),O,Pe);for(let P=0;P<ot.length;P++){let L=ot[P];L!=null&&(Bt[P]*=_,Un[P]*=M,Hi(L,pi(Bt[P]),pi(Un[P]),O,Pe))}}if(zt.show&&!se&&zt.left>=0&&zt.width>0){zt.left*=_,zt.width*=_,zt.top*=M,zt.height*=M;for(let P in Ph)Vt(Cr,P,zt[P])}we=Ze,Lt=rt,Ve=O,Ye=Pe}wn("setSize"),xe=!1}$t>0&&sn>0&&(u.clearRect(0,0,h.width,h.height),wn("drawClear"),E.forEach(_=>_()),wn("draw")),zt.show&&se&&(Ha(zt),se=!1),ge&&ne&&(Ws(null,!0,!1),ne=!1),fe.show&&fe.live&&me&&(Rh(),me=!1),l||(l=!0,n.status=1,wn("ready")),vs=!1,Kt=!1}n.redraw=(_,M)=>{ye=M||!1,_!==!1?Ss(T,D.min,D.max):In()};function Eh(_,M){let P=S[_];if(P.from==null){if(Zt==0){let L=P.range(n,M.min,M.max,_);M.min=L[0],M.max=L[1]}if(M.min>M.max){let L=M.min;M.min=M.max,M.max=L}if(Zt>1&&M.min!=null&&M.max!=null&&M.max-M.min<1e-16)return;_==T&&P.distr==2&&Zt>0&&(M.min=wi(M.min,e[0]),M.max=wi(M.max,e[0]),M.min==M.max&&M.max++),W[_]=M,ae=!0,In()}}n.setScale=Eh;let Th,Ah,Er,Tr,nf,sf,Ar,Rr,rf,of,kt,Xt,bs=!1,Cn=de.drag,Sn=Cn.x,Mn=Cn.y;ge&&(de.x&&(Th=fi(Z0,p)),de.y&&(Ah=fi(K0,p)),D.ori==0?(Er=Th,Tr=Ah):(Er=Ah,Tr=Th),kt=de.left,Xt=de.top);let zt=n.select=cn({show:!0,over:!0,left:0,width:0,top:0,height:0},i.select),Cr=zt.show?fi($0,zt.over?p:f):null;function Ha(_,M){if(zt.show){for(let P in _)zt[P]=_[P],P in Ph&&Vt(Cr,P,_[P]);M!==!1&&wn("setSelect")}}n.setSelect=Ha;function w0(_){if(v[_].show)te&&Wh(st[_],$s);else if(te&&Qn(st[_],$s),ge){let P=Ce?ot[0]:ot[_];P!=null&&Hi(P,-10,-10,O,Pe)}}function Ss(_,M,P){Eh(_,{min:M,max:P})}function Fi(_,M,P,L){M.focus!=null&&C0(_),M.show!=null&&v.forEach((H,J)=>{J>0&&(_==J||_==null)&&(H.show=M.show,w0(J),s==2?(Ss(H.facets[0].scale,null,null),Ss(H.facets[1].scale,null,null)):Ss(H.scale,null,null),In())}),P!==!1&&wn("setSeries",_,M),L&&Lo("setSeries",n,_,M)}n.setSeries=Fi;function E0(_,M){cn(C[_],M)}function T0(_,M){_.fill=xt(_.fill||null),_.dir=bt(_.dir,-1),M=M??C.length,C.splice(M,0,_)}function A0(_){_==null?C.length=0:C.splice(_,1)}n.addBand=T0,n.setBand=E0,n.delBand=A0;function R0(_,M){v[_].alpha=M,ge&&ot[_]!=null&&(ot[_].style.opacity=M),te&&st[_]&&(st[_].style.opacity=M)}let es,Ms,Gs,Pr={focus:!0};function C0(_){if(_!=Gs){let M=_==null,P=Be.alpha!=1;v.forEach((L,H)=>{if(s==1||H>0){let J=M||H==0||H==_;L._focus=M?null:J,P&&R0(H,J?1:Be.alpha)}}),Gs=_,P&&In()}}te&&je&&vt(Rf,Re,_=>{de._lock||(Je(_),Gs!=null&&Fi(null,Pr,!0,ln.setSeries))});function Bi(_,M,P){let L=S[M];P&&(_=_/Mt-(L.ori==1?rt:Ze));let H=O;L.ori==1&&(H=Pe,_=H-_),L.dir==-1&&(_=H-_);let J=L._min,le=L._max,pe=_/H,be=J+(le-J)*pe,Ne=L.distr;return Ne==3?Ur(10,be):Ne==4?f_(be,L.asinh):Ne==100?L.bwd(be):be}function P0(_,M){let P=Bi(_,T,M);return wi(P,e[0],Qt,en)}n.valToIdx=_=>wi(_,e[0]),n.posToIdx=P0,n.posToVal=Bi,n.valToPos=(_,M,P)=>S[M].ori==0?r(_,S[M],P?q:O,P?R:0):o(_,S[M],P?ue:Pe,P?b:0),n.setCursor=(_,M,P)=>{kt=_.left,Xt=_.top,Ws(null,M,P)};function af(_,M){Vt(Cr,Lr,zt.left=_),Vt(Cr,No,zt.width=M)}function lf(_,M){Vt(Cr,"top",zt.top=_),Vt(Cr,Uo,zt.height=M)}let Co=D.ori==0?af:lf,Po=D.ori==1?af:lf;function I0(){if(te&&fe.live)for(let _=s==2?1:0;_<v.length;_++){if(_==0&&at)continue;let M=fe.values[_],P=0;for(let L in M)Ge[_][P++].firstChild.nodeValue=M[L]}}function Rh(_,M){if(_!=null&&(_.idxs?_.idxs.forEach((P,L)=>{re[L]=P}):__(_.idx)||re.fill(_.idx),fe.idx=re[0]),te&&fe.live){for(let P=0;P<v.length;P++)(P>0||s==1&&!at)&&L0(P,re[P]);I0()}me=!1,M!==!1&&wn("setLegend")}n.setLegend=Rh;function L0(_,M){let P=v[_],L=_==0&&G==2?Zn:e[_],H;at?H=P.values(n,_,M)??nt:(H=P.value(n,M==null?null:L[M],_,M),H=H==null?nt:{_:H}),fe.values[_]=H}function Ws(_,M,P){rf=kt,of=Xt,[kt,Xt]=de.move(n,kt,Xt),de.left=kt,de.top=Xt,ge&&(Er&&Hi(Er,mn(kt),0,O,Pe),Tr&&Hi(Tr,0,mn(Xt),O,Pe));let L,H=Qt>en;es=Dt,Ms=null;let J=D.ori==0?O:Pe,le=D.ori==1?O:Pe;if(kt<0||Zt==0||H){L=de.idx=null;for(let pe=0;pe<v.length;pe++){let be=ot[pe];be!=null&&Hi(be,-10,-10,O,Pe)}je&&Fi(null,Pr,!0,_==null&&ln.setSeries),fe.live&&(re.fill(L),me=!0)}else{let pe,be,Ne;s==1&&(pe=D.ori==0?kt:Xt,be=Bi(pe,T),L=de.idx=wi(be,e[0],Qt,en),Ne=V(e[0][L],D,J,0));let Ue=-10,Fe=-10,it=0,St=0,yt=!0,mt="",Ke="";for(let qe=s==2?1:0;qe<v.length;qe++){let Ht=v[qe],Jt=re[qe],En=Jt==null?null:s==1?e[qe][Jt]:e[qe][1][Jt],It=de.dataIdx(n,qe,L,be),jt=It==null?null:s==1?e[qe][It]:e[qe][1][It];if(me=me||jt!=En||It!=Jt,re[qe]=It,qe>0&&Ht.show){let Kn=It==null?-10:It==L?Ne:V(s==1?e[0][It]:e[qe][0][It],D,J,0),Fn=jt==null?-10:I(jt,s==1?S[Ht.scale]:S[Ht.facets[1].scale],le,0);if(je&&jt!=null){let ui=D.ori==1?kt:Xt,yi=gn(Be.dist(n,qe,It,Fn,ui));if(yi<es){let ki=Be.bias;if(ki!=0){let Jn=Bi(ui,Ht.scale),di=jt>=0?1:-1,bi=Jn>=0?1:-1;bi==di&&(bi==1?ki==1?jt>=Jn:jt<=Jn:ki==1?jt<=Jn:jt>=Jn)&&(es=yi,Ms=qe)}else es=yi,Ms=qe}}if(me||Ce){let ui,yi;D.ori==0?(ui=Kn,yi=Fn):(ui=Fn,yi=Kn);let ki,Jn,di,bi,zi,Bn,jn=!0,Xs=he.bbox;if(Xs!=null){jn=!1;let kn=Xs(n,qe);di=kn.left,bi=kn.top,ki=kn.width,Jn=kn.height}else di=ui,bi=yi,ki=Jn=he.size(n,qe);if(Bn=he.fill(n,qe),zi=he.stroke(n,qe),Ce)qe==Ms&&es<=Be.prox&&(Ue=di,Fe=bi,it=ki,St=Jn,yt=jn,mt=Bn,Ke=zi);else{let kn=ot[qe];kn!=null&&(Bt[qe]=di,Un[qe]=bi,Uf(kn,ki,Jn,jn),Df(kn,Bn,zi),Hi(kn,pi(di),pi(bi),O,Pe))}}}}if(Ce){let qe=Be.prox,Ht=Gs==null?es<=qe:es>qe||Ms!=Gs;if(me||Ht){let Jt=ot[0];Jt!=null&&(Bt[0]=Ue,Un[0]=Fe,Uf(Jt,it,St,yt),Df(Jt,mt,Ke),Hi(Jt,pi(Ue),pi(Fe),O,Pe))}}}if(zt.show&&bs)if(_!=null){let[pe,be]=ln.scales,[Ne,Ue]=ln.match,[Fe,it]=_.cursor.sync.scales,St=_.cursor.drag;if(Sn=St._x,Mn=St._y,Sn||Mn){let{left:yt,top:mt,width:Ke,height:qe}=_.select,Ht=_.scales[Fe].ori,Jt=_.posToVal,En,It,jt,Kn,Fn,ui=pe!=null&&Ne(pe,Fe),yi=be!=null&&Ue(be,it);ui&&Sn?(Ht==0?(En=yt,It=Ke):(En=mt,It=qe),jt=S[pe],Kn=V(Jt(En,Fe),jt,J,0),Fn=V(Jt(En+It,Fe),jt,J,0),Co(Ei(Kn,Fn),gn(Fn-Kn))):Co(0,J),yi&&Mn?(Ht==1?(En=yt,It=Ke):(En=mt,It=qe),jt=S[be],Kn=I(Jt(En,it),jt,le,0),Fn=I(Jt(En+It,it),jt,le,0),Po(Ei(Kn,Fn),gn(Fn-Kn))):Po(0,le)}else Ih()}else{let pe=gn(rf-nf),be=gn(of-sf);if(D.ori==1){let it=pe;pe=be,be=it}Sn=Cn.x&&pe>=Cn.dist,Mn=Cn.y&&be>=Cn.dist;let Ne=Cn.uni;Ne!=null?Sn&&Mn&&(Sn=pe>=Ne,Mn=be>=Ne,!Sn&&!Mn&&(be>pe?Mn=!0:Sn=!0)):Cn.x&&Cn.y&&(Sn||Mn)&&(Sn=Mn=!0);let Ue,Fe;Sn&&(D.ori==0?(Ue=Ar,Fe=kt):(Ue=Rr,Fe=Xt),Co(Ei(Ue,Fe),gn(Fe-Ue)),Mn||Po(0,le)),Mn&&(D.ori==1?(Ue=Ar,Fe=kt):(Ue=Rr,Fe=Xt),Po(Ei(Ue,Fe),gn(Fe-Ue)),Sn||Co(0,J)),!Sn&&!Mn&&(Co(0,0),Po(0,0))}if(Cn._x=Sn,Cn._y=Mn,_==null){if(P){if(vf!=null){let[pe,be]=ln.scales;ln.values[0]=pe!=null?Bi(D.ori==0?kt:Xt,pe):null,ln.values[1]=be!=null?Bi(D.ori==1?kt:Xt,be):null}Lo(Oh,n,kt,Xt,O,Pe,L)}if(je){let pe=P&&ln.setSeries,be=Be.prox;Gs==null?es<=be&&Fi(Ms,Pr,!0,pe):es>be?Fi(null,Pr,!0,pe):Ms!=Gs&&Fi(Ms,Pr,!0,pe)}}me&&(fe.idx=L,Rh()),M!==!1&&wn("setCursor")}let ws=null;Object.defineProperty(n,"rect",{get(){return ws==null&&Io(!1),ws}});function Io(_=!1){_?ws=null:(ws=p.getBoundingClientRect(),wn("syncRect",ws))}function cf(_,M,P,L,H,J,le){de._lock||bs&&_!=null&&_.movementX==0&&_.movementY==0||(Ch(_,M,P,L,H,J,le,!1,_!=null),_!=null?Ws(null,!0,!0):Ws(M,!0,!1))}function Ch(_,M,P,L,H,J,le,pe,be){if(ws==null&&Io(!1),Je(_),_!=null)P=_.clientX-ws.left,L=_.clientY-ws.top;else{if(P<0||L<0){kt=-10,Xt=-10;return}let[Ne,Ue]=ln.scales,Fe=M.cursor.sync,[it,St]=Fe.values,[yt,mt]=Fe.scales,[Ke,qe]=ln.match,Ht=M.axes[0].side%2==1,Jt=D.ori==0?O:Pe,En=D.ori==1?O:Pe,It=Ht?J:H,jt=Ht?H:J,Kn=Ht?L:P,Fn=Ht?P:L;if(yt!=null?P=Ke(Ne,yt)?a(it,S[Ne],Jt,0):-10:P=Jt*(Kn/It),mt!=null?L=qe(Ue,mt)?a(St,S[Ue],En,0):-10:L=En*(Fn/jt),D.ori==1){let ui=P;P=L,L=ui}}be&&(M==null||M.cursor.event.type==Oh)&&((P<=1||P>=O-1)&&(P=qs(P,O)),(L<=1||L>=Pe-1)&&(L=qs(L,Pe))),pe?(nf=P,sf=L,[Ar,Rr]=de.move(n,P,L)):(kt=P,Xt=L)}let Ph={width:0,height:0,left:0,top:0};function Ih(){Ha(Ph,!1)}let hf,uf,df,ff;function pf(_,M,P,L,H,J,le){bs=!0,Sn=Mn=Cn._x=Cn._y=!1,Ch(_,M,P,L,H,J,le,!0,!1),_!=null&&(vt(Fh,Vh,mf,!1),Lo(Tf,n,Ar,Rr,O,Pe,null));let{left:pe,top:be,width:Ne,height:Ue}=zt;hf=pe,uf=be,df=Ne,ff=Ue}function mf(_,M,P,L,H,J,le){bs=Cn._x=Cn._y=!1,Ch(_,M,P,L,H,J,le,!1,!0);let{left:pe,top:be,width:Ne,height:Ue}=zt,Fe=Ne>0||Ue>0,it=hf!=pe||uf!=be||df!=Ne||ff!=Ue;if(Fe&&it&&Ha(zt),Cn.setScale&&Fe&&it){let St=pe,yt=Ne,mt=be,Ke=Ue;if(D.ori==1&&(St=be,yt=Ue,mt=pe,Ke=Ne),Sn&&Ss(T,Bi(St,T),Bi(St+yt,T)),Mn)for(let qe in S){let Ht=S[qe];qe!=T&&Ht.from==null&&Ht.min!=Dt&&Ss(qe,Bi(mt+Ke,qe),Bi(mt,qe))}Ih()}else de.lock&&(de._lock=!de._lock,Ws(M,!0,_!=null));_!=null&&(fn(Fh,Vh),Lo(Fh,n,kt,Xt,O,Pe,null))}function D0(_,M,P,L,H,J,le){if(de._lock)return;Je(_);let pe=bs;if(bs){let be=!0,Ne=!0,Ue=10,Fe,it;D.ori==0?(Fe=Sn,it=Mn):(Fe=Mn,it=Sn),Fe&&it&&(be=kt<=Ue||kt>=O-Ue,Ne=Xt<=Ue||Xt>=Pe-Ue),Fe&&be&&(kt=kt<Ar?0:O),it&&Ne&&(Xt=Xt<Rr?0:Pe),Ws(null,!0,!0),bs=!1}kt=-10,Xt=-10,re.fill(null),Ws(null,!0,!0),pe&&(bs=pe)}function gf(_,M,P,L,H,J,le){de._lock||(Je(_),Ro(),Ih(),_!=null&&Lo(Cf,n,kt,Xt,O,Pe,null))}function _f(){A.forEach(Dx),U(n.width,n.height,!0)}Zs(Ya,Nr,_f);let Ir={};Ir.mousedown=pf,Ir.mousemove=cf,Ir.mouseup=mf,Ir.dblclick=gf,Ir.setSeries=(_,M,P,L)=>{let H=ln.match[2];P=H(n,M,P),P!=-1&&Fi(P,L,!0,!1)},ge&&(vt(Tf,p,pf),vt(Oh,p,cf),vt(Af,p,_=>{Je(_),Io(!1)}),vt(Rf,p,D0),vt(Cf,p,gf),Kh.add(n),n.syncRect=Io);let Va=n.hooks=i.hooks||{};function wn(_,M,P){On?Ct.push([_,M,P]):_ in Va&&Va[_].forEach(L=>{L.call(null,n,M,P)})}(i.plugins||[]).forEach(_=>{for(let M in _.hooks)Va[M]=(Va[M]||[]).concat(_.hooks[M])});let xf=(_,M,P)=>P,ln=cn({key:null,setSeries:!1,filters:{pub:zf,sub:zf},scales:[T,v[1]?v[1].scale:null],match:[Hf,Hf,xf],values:[null,null]},de.sync);ln.match.length==2&&ln.match.push(xf),de.sync=ln;let vf=ln.key,Lh=Fp(vf);function Lo(_,M,P,L,H,J,le){ln.filters.pub(_,M,P,L,H,J,le)&&Lh.pub(_,M,P,L,H,J,le)}Lh.sub(n);function N0(_,M,P,L,H,J,le){ln.filters.sub(_,M,P,L,H,J,le)&&Ir[_](null,M,P,L,H,J,le)}n.pub=N0;function U0(){Lh.unsub(n),Kh.delete(n),bn.clear(),Xh(Ya,Nr,_f),c.remove(),Re?.remove(),wn("destroy")}n.destroy=U0;function Dh(){wn("init",i,e),Ao(e||i.data,!1),W[T]?Eh(T,W[T]):Ro(),se=zt.show&&(zt.width>0||zt.height>0),ne=me=!0,U(i.width,i.height)}return v.forEach(br),A.forEach(Ki),t?t instanceof HTMLElement?(t.appendChild(c),Dh()):t(n,Dh):Dh(),n}_n.assign=cn;_n.fmtNum=iu;_n.rangeNum=$a;_n.rangeLog=Ja;_n.rangeAsinh=tu;_n.orient=Js;_n.pxRatio=Mt;_n.join=w_;_n.fmtDate=ru,_n.tzDate=U_;_n.sync=Fp;{_n.addGap=_x,_n.clipGaps=el;let i=_n.paths={points:Gp};i.linear=Xp,i.stepped=yx,i.bars=bx,i.spline=Mx}function Zp(i,e,t){let n=t*Math.PI/180,s=(i+16)/116,r=c=>{let h=.20689655172413793;return c>h?c*c*c:3*h*h*(c-4/29)},o=.95047*r(s+e*Math.cos(n)/500),a=r(s),l=1.08883*r(s-e*Math.sin(n)/200);return[3.2404542*o-1.5371385*a-.4985314*l,-.969266*o+1.8760108*a+.041556*l,.0556434*o-.2040259*a+1.0572252*l]}function Nx(i,e){let t=0,n=150;for(let s=0;s<40;++s){let r=.5*(t+n);Zp(i,r,e).every(o=>o>=0&&o<=1)?t=r:n=r}return t}function Ux(i){let e=Math.min(Math.max(i,0),1);return Math.round(255*(e<=.0031308?12.92*e:1.055*e**(1/2.4)-.055))}function Vr(i){let t=i==="diverging",n=l=>t?95-110*Math.abs(l-.5):14+80*l,s=l=>t?l<.5?270:55:288+168*l,r=Array.from({length:256},(l,c)=>{let h=c/255,u=Math.min(.94*Nx(n(h),s(h)),76);return t?Math.min(u,160*Math.abs(h-.5)):u}),o=t?4:20,a=new Uint8Array(4*256);for(let l=0;l<256;++l){let c=0;for(let u=l-o;u<=l+o;++u)c+=r[Math.min(Math.max(u,0),255)]/(2*o+1);let h=l/255;a.set([...Zp(n(h),c,s(h)).map(Ux),255],4*l)}return a}function Kp(i,e){let t=e.highest-e.lowest,n=Math.min(Math.max(t>0?(i-e.lowest)/t:.5,0),1);return e.steps<2?n:Math.min(Math.floor(n*e.steps),e.steps-1)/(e.steps-1)}function sl(i,e){let t=4*Math.round(Math.min(Math.max(i,0),1)*255);return[e[t],e[t+1],e[t+2]]}function Ox(i,e){let t=i/Math.max(e,1),n=10**Math.floor(Math.log10(t));return[1,2,2.5,5,10].map(s=>s*n).find(s=>s>=t*.999)??t}function rl(i,e,t){let n=e-i;if(!(n>0))return[];let s=Ox(n,t),r=[];for(let o=Math.ceil(i/s-1e-9);o*s<=e+1e-9*n;++o)r.push(o*s);return r}var Jp=["January","February","March","April","May","June","July","August","September","October","November","December"],ol=[31,28,31,30,31,30,31,31,30,31,30,31];function Gr(i,e=!1){let t=i-1,n=0;for(;n<11&&t>=ol[n];)t-=ol[n++];return`${t+1} ${e?Jp[n].slice(0,3):Jp[n]}`}var jp=ol.map((i,e)=>1+ol.slice(0,e).reduce((t,n)=>t+n,0));function js(i){let e=Math.round(i),t=Math.floor(e/60);return`${t}:${String(e-60*t).padStart(2,"0")}`}function al(i){let e=(i-1)%24;return`${Gr(Math.floor((i-1)/24)+1)}, ${e}:00 to ${e+1}:00`}function Hn(i,e=4){if(!Number.isFinite(i))return"\u2013";let t=Math.abs(i),n=t===0?0:Math.max(0,e-1-Math.floor(Math.log10(t)));return Wr(i,Math.min(n,8))}function Wr(i,e){let[t,n]=Math.abs(i).toFixed(e).split("."),s=t.replace(/\B(?=(\d{3})+$)/g,",");return(i<0?"\u2212":"")+s+(n?`.${n}`:"")}function zo(i){let e=Math.abs(i);return e<1e4?{unit:"kWh",factor:1}:e<1e7?{unit:"MWh",factor:.001}:{unit:"GWh",factor:1e-6}}function Ho(i,e){return!Number.isFinite(i)||e==="day of year"?"\u2013":e==="0 or 1"?`${(100*i).toFixed(1)} %`:Qs(e)?Hn(i):du(i,e,0)}function ni(i){return Qs(i)?i.replace("m2","m\xB2"):""}function Qs(i){return!/^(hour of year|day of year|0 or 1|h of UTC.*)$/.test(i)}function du(i,e,t){return Qs(e)?i===0?"0":i.toFixed(t):e==="hour of year"?i>0?al(i):"never":e==="day of year"?Gr(i):e==="0 or 1"?i>.5?"yes":"no":js(60*i)}function fu(i){return["north","northeast","east","southeast","south","southwest","west","northwest"][Math.round((i%360+360)%360/45)%8]}function ll(i){let e=/^[=+\-@\t\r]/.test(i)?`'${i}`:i;return/[",\n\r]/.test(e)?`"${e.replace(/"/g,'""')}"`:e}function pu(i){return i.slice(i.indexOf(", ")+1).trim()}function Qp(i){let e=i.slice(i.indexOf("_")+1).replace(/^\d{4}_/,""),[t,n]=e.split("_");return/^[a-z]/.test(e)?/^[a-z]/.test(n??"")?`${t}\u2013${n}`:t.slice(0,1).toUpperCase():`${Number(t)}/${Number(n)}`}function cl(i){return getComputedStyle(document.documentElement).getPropertyValue(i).trim()}function em(i,e){let t=Math.floor(e.length/24),n=Vr("sequential"),s=e.reduce((f,p)=>Math.max(f,p),1),r=new ImageData(t,24);for(let f=0;f<t;++f)for(let p=0;p<24;++p){let y=sl(e[24*f+p]/s,n);r.data.set([...y,255],4*((23-p)*t+f))}let o=document.createElement("canvas");o.width=t,o.height=24,o.getContext("2d")?.putImageData(r,0,0);let a=window.devicePixelRatio||1,l=i.clientWidth||280,c=i.clientHeight||110;i.width=Math.round(l*a),i.height=Math.round(c*a);let h=i.getContext("2d");if(!h)return;h.scale(a,a);let u=22,d=15;h.imageSmoothingEnabled=!1,h.drawImage(o,u,0,l-u,c-d),h.fillStyle=cl("--soft"),h.font="10px system-ui, sans-serif",h.textBaseline="middle",h.textAlign="right";for(let f of[6,12,18])h.fillText(String(f),u-4,(c-d)*(1-f/24));h.textAlign="center";for(let f=0;f<12;++f){let p=u+(l-u)*(jp[f]+14)/365;h.fillText("JFMAMJJASOND"[f],p,c-6)}}function tm(i,e){let t=new Array(24).fill(0);for(let n=0;n<i.length;++n)t[n%24]+=i[n];return t.map(n=>n/e)}function mu(i,e,t){let n=cl("--soft"),s=cl("--line"),r=cl("--accent"),o={stroke:n,grid:{stroke:s,width:1},ticks:{show:!1},font:"10px system-ui"},a=e.map((f,p)=>p),l=Math.max(...(t.names??[]).map(f=>f.length),1),c=Math.ceil(a.length*(8+6*l)/(t.width-40)),h=Math.max(...e,1e-9),u=new _n({width:t.width,height:118,padding:[8,4,0,0],legend:{show:!1},cursor:{y:!1,drag:{x:!1,y:!1}},scales:{x:{time:!1,range:[-.6,e.length-.4]},y:{range:[0,h*1.06]}},axes:[{...o,size:22,gap:2,grid:{show:!1},splits:t.names?()=>a.filter(f=>f%c===0):()=>[0,6,12,18],values:(f,p)=>p.map(y=>t.names?.[y]??`${y}`)},{...o,size:38,gap:4,splits:()=>rl(0,h,3),values:(f,p)=>p.map(y=>Hn(y,3))}],series:[{},{label:t.label,stroke:r,fill:t.bars?r:`${r}33`,width:t.bars?0:1.6,points:{show:!1},paths:t.bars?_n.paths.bars?.({size:[.7,40]}):_n.paths.spline?.()}]},[a,e],i);u.root.setAttribute("role","img");let d=e.indexOf(Math.max(...e));return u.root.setAttribute("aria-label",`${t.label}: highest ${Hn(e[d],3)} ${t.unit} at ${t.names?.[d]??`${d} h`}`),u}function gu(i,e,t,n,s,r){let o=new Float64Array(s),a=n>t?s/(n-t):0;for(let l=0;l<i.count;++l){if(e.levels[l]===e.missing||r&&r[l]===0)continue;let c=Math.floor((e.at(l)-t)*a);o[Math.min(Math.max(c,0),s-1)]+=i.area[l]}return{lowest:t,highest:n,areas:o}}function _u(){return{cells:0,area:0,lowest:1/0,highest:-1/0,mean:NaN,whole:0}}function Bx(i,e,t){i.cells+=1,i.area+=t,i.lowest=Math.min(i.lowest,e),i.highest=Math.max(i.highest,e),i.whole+=e*t}function Vo(i,e,t,n,s=null){let r=Array.from({length:n},_u);for(let o=0;o<i.count;++o)e.levels[o]!==e.missing&&(!s||s[o]===1)&&Bx(r[t?t[o]:0],e.at(o),i.area[o]);for(let o of r)o.mean=o.area>0?o.whole/o.area:NaN;return r}function nm(i,e,t,n,s){let r=0,o=0;for(let a=0;a<i.count;++a){if(e.levels[a]===e.missing||s&&s[a]===0)continue;let l=e.at(a);l>=t&&l<=n&&(r+=i.area[a],++o)}return{area:r,cells:o}}var Vi=class{constructor(e){j(this,"bytes",e);j(this,"at",0)}get done(){return this.at>=this.bytes.length}number(){let e=0,t=1;for(;;){let n=this.bytes[this.at++];if(n===void 0)throw new Error("the page's data end too early");if(e+=(n&127)*t,n<128)return e;t*=128}}difference(){let e=this.number();return e%2===0?e/2:-(e+1)/2}};var Wo=4294967295,dl=["up","north","east","south","west","down","none"],Xo=dl.indexOf("none"),er=class{constructor(e,t,n,s,r,o,a,l=!1){j(this,"name",e);j(this,"title",t);j(this,"unit",n);j(this,"step",s);j(this,"offset",r);j(this,"decimals",o);j(this,"levels",a);j(this,"diverging",l);j(this,"missing");j(this,"spanned",null);this.missing=65535}get ends(){if(!this.spanned){let e=this.missing,t=-1;for(let s of this.levels)s!==this.missing&&(e=Math.min(e,s),t=Math.max(t,s));let n=s=>(this.offset+s)*this.step;this.spanned=t<0?[0,1]:[n(e),n(t)]}return this.spanned}at(e){let t=this.levels[e];return t===this.missing?NaN:(this.offset+t)*this.step}text(e){return Number.isFinite(e)?du(e,this.unit,Math.max(0,this.decimals)):"no value"}},Go=class{constructor(e){j(this,"record");j(this,"cells");j(this,"scene");j(this,"series");j(this,"enclosed");j(this,"centre");j(this,"bytes");j(this,"columns",new Map);let t=new DataView(e).getUint32(0,!0);if(this.record=JSON.parse(new TextDecoder().decode(new Uint8Array(e,4,t))),this.record.format!==1)throw new Error("the page's data are of another version than its script");this.bytes=new Uint8Array(e,4+t);let{origin:n,step:s}=this.record;this.centre=[n[0],n[1],n[2]],this.cells=kx(this.array("blocks"),this.record.cells,s,this.record.north),Hx(this.array("faces"),this.cells),this.scene=Gx(this),this.enclosed=Vx(this.array("enclosed"),this.cells.count),this.series=this.record.series.map((r,o)=>({label:r.label,sensor:r.sensor,hours:Xx(this.array(`series${o}`))}))}array(e){let t=this.record.arrays[e];return t?this.bytes.subarray(t[0],t[0]+t[1]):new Uint8Array}floats(e){let t=this.array(e);return new Float32Array(t.buffer.slice(t.byteOffset,t.byteOffset+t.length))}name(e){return e===0?"":this.record.names[e-1]}get hasObjects(){return this.array("faces").length>0}column(e,t){let n=`${e}${t}`,s=this.columns.get(n);if(!s){let r=(e==="column"?this.record.columns:this.record.steps)[t],o=Wx(this.array(n),r.bytes,this.cells);s=new er(r.name,r.title,r.unit,r.step,r.offset,r.decimals,o,r.diverging),this.columns.set(n,s)}return s}columnNamed(e){let t=this.record.columns.findIndex(n=>n.name===e);return t<0?null:this.column("column",t)}};function xu(i,e,t,n){let s=Math.hypot(i,e,t);if(s===0)return Xo;if(t>=.5*s)return 0;if(t<=-.5*s)return 5;let r=Math.atan2(i,e)*180/Math.PI-n;return 1+Math.round((r%360+360)%360/90)%4}var im=2**27;function hl(i){if(!i)throw new Error("the page's data are damaged")}function kx(i,e,t,n){hl(e<=im);let s=new Vi(i),r=[],o=new Float32Array(e),a=new Uint8Array(e),l=new Uint32Array(e),c=[],h=[],u=[],d=[],f=[0,0,0],p=0,y=!1,m=0,g=()=>(f[0]+=s.difference(),f[1]+=s.difference(),f[2]+=s.difference(),[f[0]*t,f[1]*t,f[2]*t]);for(;m<e;){let T=s.number(),x=T&3,E={kind:x,first:m,count:(T-(T&3))/4,texel:p,columns:1,rows:1,present:null,corners:null};if(hl(E.count<=e-m),r.push(E),x===1){E.columns=s.number(),E.rows=s.number();let B=g(),N=g(),D=g();E.corners=new Float32Array([...B,...N,...D]);let G=[N[0]-B[0],N[1]-B[1],N[2]-B[2]],V=[D[0]-B[0],D[1]-B[1],D[2]-B[2]],I=E.columns*E.rows;if(hl(I>=E.count&&I<=im),I>E.count){y=!0,E.present=new Uint8Array(I);for(let z=0,ce=1;z<I;ce^=1){let K=s.number();E.present.fill(ce,z,z+K),z+=K}}let W=ul(G,V);o.fill(Math.hypot(...W)/I,m,m+E.count),a.fill(xu(W[0],W[1],W[2],n),m,m+E.count);let $=c.length/3;c.push(...B,...N,N[0]+V[0],N[1]+V[1],N[2]+V[2],...D),h.push(0,0,E.columns,0,E.columns,E.rows,0,E.rows);for(let z=0;z<4;++z)u.push(p,E.columns,E.rows);d.push($,$+1,$+2,$,$+2,$+3),p+=I}else{for(let B=m;B<m+E.count;++B){let N=c.length/3;if(l[B]=N,x===2){let V=g(),I=[s.difference(),s.difference(),s.difference()];c.push(...V,...I),a[B]=xu(I[0],I[1],I[2],n);continue}let D=s.number();for(let V=0;V<D;++V){let I=g();c.push(I[0],I[1],I[2]),h.push(.5,.5),u.push(p+B-m,1,1)}for(let V=2;V<D;++V)d.push(N,N+V-1,N+V);let G=rm(c,N,D);o[B]=.5*Math.hypot(G[0],G[1],G[2]),a[B]=xu(G[0],G[1],G[2],n)}p+=E.count}m+=E.count}let v=null,A=null;if(y){v=new Uint32Array(p).fill(Wo),A=new Uint32Array(e);for(let T of r){let x=T.first,E=T.present?T.present.length:T.count;for(let B=0;B<E;++B)(!T.present||T.present[B]===1)&&(A[x]=T.texel+B,v[T.texel+B]=x++)}}let S=r.length>0&&r[0].kind===2,C=S?zx(c,e):{position:new Float32Array(c),place:new Float32Array(h),lookup:new Int32Array(u),index:new Uint32Array(d)};if(S){for(let T=0;T<e;++T)l[T]=6*T;o.fill(1)}return{count:e,blocks:r,texels:p,sensorOfTexel:v,texelOfSensor:A,area:o,side:a,object:new Uint32Array(e),material:new Uint32Array(e),hasAreas:!S,mesh:C,firstVertex:l}}function ul(i,e){return[i[1]*e[2]-i[2]*e[1],i[2]*e[0]-i[0]*e[2],i[0]*e[1]-i[1]*e[0]]}function rm(i,e,t){let n=[0,0,0],s=3*e;for(let r=1;r+1<t;++r){let o=s+3*r,a=o+3,l=ul([i[o]-i[s],i[o+1]-i[s+1],i[o+2]-i[s+2]],[i[a]-i[s],i[a+1]-i[s+1],i[a+2]-i[s+2]]);n[0]+=l[0],n[1]+=l[1],n[2]+=l[2]}return n}function zx(i,e){let t=[1/0,1/0,1/0],n=[-1/0,-1/0,-1/0];for(let u=0;u<e;++u)for(let d=0;d<3;++d)t[d]=Math.min(t[d],i[6*u+d]),n[d]=Math.max(n[d],i[6*u+d]);let s=[0,1,2].map(u=>Math.max(n[u]-t[u],0)).sort((u,d)=>d-u),r=Math.max(s[0]*s[1],s[0]*s[0]/Math.max(e,1),1e-6),o=.4*Math.sqrt(r/Math.max(e,1)),a=new Float32Array(18*e),l=new Float32Array(12*e).fill(.5),c=new Int32Array(18*e).fill(1),h=new Uint32Array(12*e);for(let u=0;u<e;++u){let d=i.slice(6*u+3,6*u+6),f=Math.hypot(d[0],d[1],d[2]);d=f>0?d.map(A=>A/f):[0,0,1];let p=Math.abs(d[2])<.9?[0,0,1]:[1,0,0],y=ul(p,d),m=Math.hypot(...y),g=y.map(A=>A/m),v=ul(d,g);for(let A=0;A<6;++A){let S=o*Math.cos(A*Math.PI/3),C=o*Math.sin(A*Math.PI/3);for(let T=0;T<3;++T)a[18*u+3*A+T]=i[6*u+T]+S*g[T]+C*v[T];c[18*u+3*A]=u}for(let A=0;A<4;++A)h.set([6*u,6*u+A+1,6*u+A+2],12*u+3*A)}return{position:a,place:l,lookup:c,index:h}}function Hx(i,e){let t=new Vi(i);for(let n=0;!t.done;){let s=t.number();e.object.fill(t.number(),n,n+s),e.material.fill(t.number(),n,n+s),n+=s}}function Vx(i,e){let t=new Vi(i),n=new Uint8Array(e),s=!1;for(let r=0,o=0;!t.done;o^=1){let a=r+t.number();n.fill(o,r,a),s||(s=o===1&&a>r),r=a}return s?n:null}function sm(i,e){let t=new Uint32Array(e);for(let n=0;n<e&&!i.done;){let s=i.number();t.fill(i.number(),n,n+s),n+=s}return t}function Gx(i){let{vertices:e,triangles:t,edges:n}=i.record.scene,s=i.record.step;hl(3*e<=i.array("vertices").length&&3*t<=i.array("triangles").length&&2*n<=i.array("edges").length);let r=new Float32Array(3*e),o=new Vi(i.array("vertices")),a=[0,0,0];for(let p=0;p<r.length;++p)a[p%3]+=o.difference(),r[p]=a[p%3]*s;let l=new Uint32Array(3*t),c=new Vi(i.array("triangles"));for(let p=0,y=0;p<l.length;++p)l[p]=y-c.number(),y=Math.max(y,l[p]+1);let h=new Uint32Array(2*n),u=new Vi(i.array("edges"));for(let p=0,y=0;p<n;++p)y+=u.difference(),h[2*p]=y,h[2*p+1]=y+u.number();let d=new Vi(i.array("objects")),f=[];if(!d.done)for(let p=d.number();p>0;--p)f.push([d.number(),d.number()]);return{position:r,index:l,edges:h,triangleObject:sm(d,t),edgeObject:sm(new Vi(i.array("edgeObjects")),n),pairs:f}}function Wx(i,e,t){let n=t.count,s=new Uint16Array(n),r=e===2?65535:255,o=a=>{if(e===1)return i[a];let l=i[a]|i[n+a]<<8;return l&1?~(l>>1):l>>1};for(let a of t.blocks){let l=a.kind===1&&!a.present,c=a.columns;for(let h=0;h<a.count;++h){let u=a.first+h,d=0;if(!l)d=u>0?s[u-1]:0;else{let f=h%c!==0;if(h>=c){let p=s[u-c];d=f?s[u-1]+p>>1:p}else f&&(d=s[u-1])}s[u]=d+o(u)&r}}if(e===1)for(let a=0;a<n;++a)s[a]===255&&(s[a]=65535);return s}function Xx(i){let e=i.length/2,t=new Float32Array(e);for(let n=0;n<e;++n)t[n]=(i[n]|i[e+n]<<8)/10;return t}function is(i,e){let t=Yx(i,e);if(t.kind!==1||!t.corners){let{position:l}=i.mesh,c=i.firstVertex[e],h=e+1<t.first+t.count?i.firstVertex[e+1]:qx(i,c),u=[];for(let d=c;d<h;++d)u.push([l[3*d],l[3*d+1],l[3*d+2]]);return u}let n=i.texelOfSensor?i.texelOfSensor[e]-t.texel:e-t.first,s=n%t.columns,r=Math.floor(n/t.columns),o=t.corners,a=(l,c)=>[0,1,2].map(h=>o[h]+(o[3+h]-o[h])*l/t.columns+(o[6+h]-o[h])*c/t.rows);return[a(s,r),a(s+1,r),a(s+1,r+1),a(s,r+1)]}function qx(i,e){let{lookup:t}=i.mesh,n=e;for(;3*n<t.length&&t[3*n]===t[3*e];)++n;return n}function Yx(i,e){let t=0,n=i.blocks.length-1;for(;t<n;){let s=t+n+1>>1;i.blocks[s].first<=e?t=s:n=s-1}return i.blocks[t]}function fl(i){let e=i.flat(),t=rm(e,0,i.length),n=Math.hypot(...t)||1;return[t[0]/n,t[1]/n,t[2]/n]}function As(i,e,t){let{cells:n}=i;return e==="side"?dl[n.side[t]]:i.name(e==="object"?n.object[t]:n.material[t])}function ml(i,e){let{cells:t}=i;return e==="side"?{names:[...dl],of:t.side}:{names:["",...i.record.names],of:e==="object"?t.object:t.material}}function $x(i,e,t){let{names:n,of:s}=ml(i,t),r=Vo(i.cells,e,s,n.length),o=new Uint32Array(n.length);for(let a=0;a<i.cells.count;++a)o[s[a]]+=1;return n.map((a,l)=>({...r[l]??_u(),name:a})).filter((a,l)=>o[l]>0)}function Zx(i){return i>=100?Hn(Math.round(i),Math.floor(Math.log10(i))+1):Hn(i,3)}var pl=class{constructor(e){j(this,"element");j(this,"onChoose",()=>{});j(this,"onHide",()=>{});j(this,"onKind",()=>{});j(this,"kind","object");j(this,"groups",[]);j(this,"sort","area");j(this,"isDescending",!0);j(this,"chosen",null);j(this,"energy",zo(0));j(this,"unit","");j(this,"isHidden",()=>!1);j(this,"search",X("input",{type:"search",placeholder:"Search","aria-label":"Search groups by name"}));j(this,"kinds",X("select",{"aria-label":"Group by"}));j(this,"head",X("tr"));j(this,"body",X("tbody"));j(this,"note",X("p",{class:"quiet"}));let t=e?[["object","Objects"],["material","Materials"],["side","Orientation"]]:[["side","Orientation"]];this.kind=t[0][0];for(let[n,s]of t)this.kinds.append(X("option",{value:n},s));this.kinds.addEventListener("change",()=>{this.kind=this.kinds.value,this.chosen=null,this.onChoose(null),this.onKind()}),this.search.addEventListener("input",()=>this.fill()),this.search.addEventListener("keydown",n=>{n.key==="Enter"&&this.body.querySelector("tr")?.click()}),this.element=X("div",{},X("div",{class:"row"},X("div",{class:"grow"},this.kinds),X("div",{class:"grow"},this.search)),X("div",{class:"table"},X("table",{},X("thead",{},this.head),this.body)),this.note)}choose(e){this.chosen=e,this.fill()}show(e,t,n){this.groups=$x(e,t,this.kind),this.isHidden=n,this.unit=t.unit;let s=t.unit==="kWh/m2"&&e.cells.hasAreas,r=[["name","Name",""],["area",e.cells.hasAreas?"m\xB2":"points","Area"],["mean","mean",`Mean by area, ${ni(t.unit)}`]];s&&(this.energy=zo(this.groups.reduce((o,a)=>Math.max(o,Math.abs(a.whole)),0)),r.push(["whole",this.energy.unit,"Sum over the area"])),this.head.replaceChildren(...r.map(([o,a,l])=>X("th",{scope:"col",title:l,"aria-sort":this.sort===o?this.isDescending?"descending":"ascending":"none"},X("button",{type:"button",click:()=>this.sortBy(o,e,t)},a))),X("th",{scope:"col"},X("span",{class:"hidden"},"Shown"))),this.fill()}sortBy(e,t,n){this.isDescending=this.sort===e?!this.isDescending:e!=="name",this.sort=e,this.show(t,n,this.isHidden),this.head.querySelector("th:not([aria-sort=none]) button")?.focus()}fill(){let e=this.search.value.trim().toLowerCase(),t=c=>c.name||"(no name)",n=this.groups.filter(c=>t(c).toLowerCase().includes(e)),s=this.isDescending?-1:1,r=this.sort;n.sort((c,h)=>r==="name"?s*t(c).localeCompare(t(h),void 0,{numeric:!0}):s*((Number.isFinite(c[r])?c[r]:-1/0)-(Number.isFinite(h[r])?h[r]:-1/0)));let o=400,a=this.head.childElementCount===5;this.body.replaceChildren(...n.slice(0,o).map(c=>{let h={kind:this.kind,name:c.name},u=this.isHidden(h),d=this.chosen===c.name,f=()=>{this.chosen=d?null:c.name,this.onChoose(this.chosen===null?null:h),this.fill()},p=t(c),y=X("button",{type:"button","aria-pressed":"false",title:u?"Show":"Hide","aria-label":`${u?"Show":"Hide"} ${p.slice(0,80)}`,click:m=>{m.stopPropagation(),this.onHide(h,!u)}},Si(u?"M4 4l16 16M9.9 5.2A9.6 9.6 0 0 1 12 5c5 0 8.5 4.2 9.5 7a12 12 0 0 1-2.6 3.8M6.3 7.2A12 12 0 0 0 2.5 12c1 2.800 4.500 7 9.500 7a9 9 0 0 0 4-.9":"M2.500 12c1-2.800 4.500-7 9.500-7s8.500 4.200 9.500 7c-1 2.800-4.500 7-9.500 7s-8.500-4.200-9.500-7zM12 9.200a2.800 2.800 0 1 1 0 5.600 2.800 2.800 0 0 1 0-5.600z"));return X("tr",{class:`${d?"chosen":""} ${u?"off":""}`,tabindex:0,"aria-current":d?"true":void 0,click:f,keydown:m=>{m.key==="Enter"&&m.target===m.currentTarget&&f()}},X("td",{title:p.slice(0,300)},X("bdi",{},p.slice(0,300))),X("td",{},Zx(c.area)),X("td",{},Ho(c.mean,this.unit)),a&&X("td",{},Hn(c.whole*this.energy.factor)),X("td",{},y))}));let l=n.length-o;this.note.textContent=l>0?`${l} more; search by name to see them.`:n.length===0?"Nothing of this name.":"",this.note.hidden=this.note.textContent===""}};var Kx=48,tr=class{constructor(){j(this,"element");j(this,"onEnds",()=>{});j(this,"onRange",()=>{});j(this,"canvas",X("canvas",{class:"histogram",tabindex:0,role:"group","aria-label":"Areas by value. Drag to show only a range; with the keyboard, arrow up and down move its lower end, with Shift its upper end, Escape shows all."}));j(this,"title",X("b"));j(this,"unit",X("span"));j(this,"top",X("input",{type:"number",step:"any","aria-label":"Upper end of the colours"}));j(this,"bottom",X("input",{type:"number",step:"any","aria-label":"Lower end of the colours"}));j(this,"reset",X("button",{type:"button",title:"Ends of the values shown"},"auto"));j(this,"filter",X("p",{class:"filter","aria-live":"polite"}));j(this,"content",null);this.element=X("section",{id:"legend","aria-label":"Colours"},X("p",{class:"unit"},this.title,this.unit),X("div",{class:"end"},this.top,this.reset),X("div",{class:"plot"},this.canvas),X("div",{class:"end"},this.bottom),this.filter);let e=()=>{let t=this.bottom.value===""?null:Number(this.bottom.value),n=this.top.value===""?null:Number(this.top.value);(t??-1/0)<(n??1/0)?this.onEnds(t,n):this.content&&this.show(this.content)};this.top.addEventListener("change",e),this.bottom.addEventListener("change",e),this.reset.addEventListener("click",()=>this.onEnds(null,null)),this.brush()}show(e){this.content=e;let{scale:t}=e;this.title.textContent=e.title,this.title.title=e.title,this.unit.textContent=e.unit||"\xA0";let n=Math.max(0,Math.min(4,Math.ceil(-Math.log10(e.step)-1e-9)));this.top.value=t.highest.toFixed(n),this.bottom.value=t.lowest.toFixed(n),this.top.hidden=e.label!==null,this.bottom.hidden=e.label!==null,this.reset.hidden=!e.hasOwnEnds,this.filter.replaceChildren(e.filterText),e.range&&this.filter.append(" ",X("button",{type:"button",click:()=>this.onRange(null)},"show all")),this.draw()}draw(){let e=this.content,{clientWidth:t,clientHeight:n}=this.canvas;if(!e||t===0)return;let s=window.devicePixelRatio||1;this.canvas.width=Math.round(t*s),this.canvas.height=Math.round(n*s);let r=this.canvas.getContext("2d");r&&(r.scale(s,s),yu(r,e,t,n,t>100))}valueAt(e){let t=this.canvas.getBoundingClientRect(),{lowest:n,highest:s}=this.content?.scale??{lowest:0,highest:1},r=Math.min(Math.max(1-(e.clientY-t.top)/t.height,0),1);return n+r*(s-n)}opened(e,t){let{lowest:n,highest:s}=this.content?.scale??{lowest:0,highest:1},r=.012*(s-n),o=Math.min(e,t)<=n+r?-1/0:Math.min(e,t),a=Math.max(e,t)>=s-r?1/0:Math.max(e,t);return o===-1/0&&a===1/0?null:[o,a]}brush(){let e=null;this.canvas.addEventListener("pointerdown",t=>{e=this.valueAt(t),this.canvas.setPointerCapture(t.pointerId)}),this.canvas.addEventListener("pointermove",t=>{e!==null&&this.onRange(this.opened(e,this.valueAt(t)))}),this.canvas.addEventListener("pointerup",t=>{let{lowest:n,highest:s}=this.content?.scale??{lowest:0,highest:1};e!==null&&Math.abs(this.valueAt(t)-e)<.01*(s-n)&&this.onRange(null),e=null}),this.canvas.addEventListener("keydown",t=>{if(!this.content||!["ArrowUp","ArrowDown","Escape"].includes(t.key))return;if(t.preventDefault(),t.stopPropagation(),t.key==="Escape")return this.onRange(null);let{lowest:n,highest:s}=this.content.scale,r=(s-n)/40*(t.key==="ArrowUp"?1:-1),o=Math.max(this.content.range?.[0]??n,n),a=Math.min(this.content.range?.[1]??s,s);t.shiftKey?a=Math.min(Math.max(a+r,o),s):o=Math.max(Math.min(o+r,a),n),this.onRange(this.opened(o,a))})}};j(tr,"bins",Kx);function vu(i){return getComputedStyle(document.documentElement).getPropertyValue(i).trim()}function yu(i,e,t,n,s){let{scale:r,histogram:o,range:a}=e,l=Vr(r.scheme),c=m=>r.lowest+(1-m/n)*(r.highest-r.lowest),h=m=>!a||m>=a[0]&&m<=a[1],u=16;for(let m=0;m<n;++m){let g=c(m+.5),[v,A,S]=sl(Kp(g,r),l);i.globalAlpha=h(g)?1:.25,i.fillStyle=`rgb(${v},${A},${S})`,i.fillRect(0,m,u,1.02)}let d=u+4,f=s?t-48:t,p=Math.max(...o.areas,1e-12),y=n/o.areas.length;if(i.fillStyle=vu("--soft"),o.areas.forEach((m,g)=>{let v=o.lowest+(g+.5)/o.areas.length*(o.highest-o.lowest);i.globalAlpha=h(v)?.62:.18;let A=m>0?Math.max(1,Math.sqrt(m/p)*(f-d)):0;i.fillRect(d,n-(g+1)*y+.5,A,Math.max(y-1,.8))}),i.globalAlpha=1,a){i.strokeStyle=vu("--accent"),i.lineWidth=1.5;for(let m of a)if(Number.isFinite(m)){let g=n*(1-(m-r.lowest)/(r.highest-r.lowest));i.beginPath(),i.moveTo(0,g),i.lineTo(f,g),i.stroke()}}if(s){i.fillStyle=vu("--ink"),i.font="11.5px system-ui, sans-serif",i.textAlign="right",i.textBaseline="middle";let m=e.label!==null&&r.steps===2,g=m?[.25,.75]:rl(r.lowest,r.highest,6),v=g.length>1?g[1]-g[0]:1,A=[0,1,2,3,4].find(S=>Math.abs(v*10**S-Math.round(v*10**S))<1e-6)??5;for(let S of g){let C=n*(1-(S-r.lowest)/(r.highest-r.lowest));C>7&&C<n-7&&(i.fillText(e.label?e.label(m?Math.round(S):S):Wr(S,A),t,C),i.globalAlpha=m?0:.25,i.fillRect(0,C-.5,f,1),i.globalAlpha=1)}}}function om(i,e){let t=Math.max(i.step,e.step),n=i.levels.length,s=new Float64Array(n),r=1/0,o=-1/0;for(let u=0;u<n;++u)s[u]=e.at(u)-i.at(u),Number.isFinite(s[u])&&(r=Math.min(r,s[u]),o=Math.max(o,s[u]));let a=t;for(;(o-r)/a>65e3;)a*=10;let l=Number.isFinite(r)?Math.round(r/a):0,c=new Uint16Array(n);for(let u=0;u<n;++u)c[u]=Number.isFinite(s[u])?Math.round(s[u]/a)-l:65535;let h=Math.min(i.decimals,e.decimals)-Math.round(Math.log10(a/t));return new er(i.name,`${i.title}, difference`,i.unit,a,l,h,c,!0)}function gl(i){let[e,...t]=i;return e.record.columns.filter(n=>n.unit!=="hour of year"&&t.every(s=>s.record.columns.some(r=>r.name===n.name&&r.unit===n.unit)))}function bu(i){let e=t=>t.record.steps.map(n=>n.name).join();return i.every(t=>e(t)===e(i[0]))}function lm(i,e){let t=[];return i.forEach((n,s)=>{let r=[...t.map(o=>i[o]),n];t.length<e&&gl(r).length>0&&t.push(s)}),t}function _l(i,e){if(i===e)return!0;let t=am.get(i);t||(t=new WeakMap,am.set(i,t));let n=t.get(e);return n===void 0&&(n=Jx(i,e),t.set(e,n)),n}var am=new WeakMap;function Jx(i,e){if(i.cells.count!==e.cells.count||i.cells.hasAreas!==e.cells.hasAreas)return!1;let t=2*(i.record.step+e.record.step),n=i.centre.map((s,r)=>s-e.centre[r]);for(let s=0;s<i.cells.count;++s){let r=is(i.cells,s),o=is(e.cells,s);if(!(r.length===o.length&&r.every((l,c)=>l.every((h,u)=>Math.abs(h+n[u]-o[c][u])<=t))))return!1}return!0}var ss=Math.PI/180;function jx(i){return i<-1?0:1.02/Math.tan((i+10.3/(i+5.11))*ss)/60}var xl=class{constructor(e,t,n){j(this,"site",e);j(this,"declination",t);j(this,"equation",n)}at(e,t){let n=e+(t/60-this.site.timeZone)/24,s=Math.min(Math.max(n,0),this.declination.length-2),r=Math.floor(s),o=m=>m[r]+(m[r+1]-m[r])*(s-r),a=o(this.declination)*ss,c=(t-60*this.site.timeZone+4*this.site.longitude+o(this.equation)-720)/4*ss,h=this.site.latitude*ss,u=-Math.cos(a)*Math.sin(c),d=Math.sin(a)*Math.cos(h)-Math.cos(a)*Math.cos(c)*Math.sin(h),f=Math.sin(a)*Math.sin(h)+Math.cos(a)*Math.cos(c)*Math.cos(h),p=Math.asin(Math.min(Math.max(f,-1),1))/ss;return{azimuth:(Math.atan2(u,d)/ss+360)%360,altitude:p+jx(p)}}times(e){let t=null,n=null,s=o=>this.at(e,o).altitude>-.2667,r=(o,a)=>{let l=s(o);for(let c=0;c<12;++c){let h=.5*(o+a);s(h)===l?o=h:a=h}return a};for(let o=-120;o<1560;o+=10){let a=s(o),l=s(o+10);!a&&l&&t===null&&(t=r(o,o+10)),a&&!l&&t!==null&&(n=r(o,o+10))}return t!==null&&n!==null?{rise:t,set:n}:null}};function nr(i,e){let t=(i.azimuth+e)*ss,n=Math.cos(i.altitude*ss);return[n*Math.sin(t),n*Math.cos(t),Math.sin(i.altitude*ss)]}var ks={LEFT:0,MIDDLE:1,RIGHT:2,ROTATE:0,DOLLY:1,PAN:2},zs={ROTATE:0,PAN:1,DOLLY_PAN:2,DOLLY_ROTATE:3},zm=0,ju=1,Hm=2;var Ma=1,Vm=2,go=3,qi=0,Wn=1,ci=2,mr=0,_o=1,Qu=2,ed=3,td=4,Gm=5;var gr=100,Wm=101,Xm=102,qm=103,Ym=104,$m=200,Zm=201,Km=202,Jm=203,nd=204,id=205,jm=206,Qm=207,eg=208,tg=209,ng=210,ig=211,sg=212,rg=213,og=214,Xl=0,ql=1,Yl=2,ro=3,$l=4,Zl=5,Kl=6,Jl=7,sd=0,ag=1,lg=2,Yi=0,rd=1,od=2,ad=3,ld=4,cd=5,hd=6,ud=7;var dd=300,_r=301,xo=302,Pc=303,Ic=304,jl=1e3,Wi=1001,Ql=1002,An=1003,cg=1004;var wa=1005;var Rn=1006,Lc=1007;var ps=1008;var Xn=1009,fd=1010,pd=1011,Hs=1012,vo=1013,hi=1014,Ii=1015,Li=1016,Dc=1017,Nc=1018,xr=1020,md=35902,gd=35899,_d=1021,xd=1022,Di=1023,us=1026,ms=1027,vd=1028,yo=1029,Vs=1030,Uc=1031;var Oc=1033,Ea=33776,Ta=33777,Aa=33778,Ra=33779,Fc=35840,Bc=35841,kc=35842,zc=35843,Hc=36196,Vc=37492,Gc=37496,Wc=37488,Xc=37489,Ca=37490,qc=37491,Yc=37808,$c=37809,Zc=37810,Kc=37811,Jc=37812,jc=37813,Qc=37814,eh=37815,th=37816,nh=37817,ih=37818,sh=37819,rh=37820,oh=37821,ah=36492,lh=36494,ch=36495,hh=36283,uh=36284,Pa=36285,dh=36286;var na=2300,ec=2301,Gl=2302,Xu=2303,qu=2400,Yu=2401,$u=2402;var hg=3200;var yd=0,ug=1,gs="",ri="srgb",lr="srgb-linear",ia="linear",Tt="srgb";var Wl=7680;var dg=519,fg=512,pg=513,mg=514,Ia=515,gg=516,_g=517,bd=518,Sd=519,xg=35044;var La="300 es",gi=2e3,sa=2001;function Qx(i){for(let e=i.length-1;e>=0;--e)if(i[e]>=65535)return!0;return!1}function ev(i){return ArrayBuffer.isView(i)&&!(i instanceof DataView)}function ra(i){return document.createElementNS("http://www.w3.org/1999/xhtml",i)}function vg(){let i=ra("canvas");return i.style.display="block",i}var cm={},oo=null;function Md(...i){let e="THREE."+i.shift();oo?oo("log",e,...i):console.log(e,...i)}function yg(i){let e=i[0];if(typeof e=="string"&&e.startsWith("TSL:")){let t=i[1];t&&t.isStackTrace?i[0]+=" "+t.getLocation():i[1]='Stack trace not available. Enable "THREE.Node.captureStackTrace" to capture stack traces.'}return i}function $e(...i){i=yg(i);let e="THREE."+i.shift();if(oo)oo("warn",e,...i);else{let t=i[0];t&&t.isStackTrace?console.warn(t.getError(e)):console.warn(e,...i)}}function et(...i){i=yg(i);let e="THREE."+i.shift();if(oo)oo("error",e,...i);else{let t=i[0];t&&t.isStackTrace?console.error(t.getError(e)):console.error(e,...i)}}function Jo(...i){let e=i.join(" ");e in cm||(cm[e]=!0,$e(...i))}function bg(i,e,t){return new Promise(function(n,s){function r(){switch(i.clientWaitSync(e,i.SYNC_FLUSH_COMMANDS_BIT,0)){case i.WAIT_FAILED:s();break;case i.TIMEOUT_EXPIRED:setTimeout(r,t);break;default:n()}}setTimeout(r,t)})}var Sg={[Xl]:Xl,[Yl]:Kl,[$l]:$l,[ro]:Zl,[ql]:ql,[Kl]:Yl,[Jl]:Jl,[Zl]:ro},Ci=class{addEventListener(e,t){this._listeners===void 0&&(this._listeners={});let n=this._listeners;n[e]===void 0&&(n[e]=[]),n[e].indexOf(t)===-1&&n[e].push(t)}hasEventListener(e,t){let n=this._listeners;return n===void 0?!1:n[e]!==void 0&&n[e].indexOf(t)!==-1}removeEventListener(e,t){let n=this._listeners;if(n===void 0)return;let s=n[e];if(s!==void 0){let r=s.indexOf(t);r!==-1&&s.splice(r,1)}}dispatchEvent(e){let t=this._listeners;if(t===void 0)return;let n=t[e.type];if(n!==void 0){e.target=this;let s=n.slice(0);for(let r=0,o=s.length;r<o;r++)s[r].call(this,e);e.target=null}}},Ln=["00","01","02","03","04","05","06","07","08","09","0a","0b","0c","0d","0e","0f","10","11","12","13","14","15","16","17","18","19","1a","1b","1c","1d","1e","1f","20","21","22","23","24","25","26","27","28","29","2a","2b","2c","2d","2e","2f","30","31","32","33","34","35","36","37","38","39","3a","3b","3c","3d","3e","3f","40","41","42","43","44","45","46","47","48","49","4a","4b","4c","4d","4e","4f","50","51","52","53","54","55","56","57","58","59","5a","5b","5c","5d","5e","5f","60","61","62","63","64","65","66","67","68","69","6a","6b","6c","6d","6e","6f","70","71","72","73","74","75","76","77","78","79","7a","7b","7c","7d","7e","7f","80","81","82","83","84","85","86","87","88","89","8a","8b","8c","8d","8e","8f","90","91","92","93","94","95","96","97","98","99","9a","9b","9c","9d","9e","9f","a0","a1","a2","a3","a4","a5","a6","a7","a8","a9","aa","ab","ac","ad","ae","af","b0","b1","b2","b3","b4","b5","b6","b7","b8","b9","ba","bb","bc","bd","be","bf","c0","c1","c2","c3","c4","c5","c6","c7","c8","c9","ca","cb","cc","cd","ce","cf","d0","d1","d2","d3","d4","d5","d6","d7","d8","d9","da","db","dc","dd","de","df","e0","e1","e2","e3","e4","e5","e6","e7","e8","e9","ea","eb","ec","ed","ee","ef","f0","f1","f2","f3","f4","f5","f6","f7","f8","f9","fa","fb","fc","fd","fe","ff"],hm=1234567,jo=Math.PI/180,ao=180/Math.PI;function bo(){let i=Math.random()*4294967295|0,e=Math.random()*4294967295|0,t=Math.random()*4294967295|0,n=Math.random()*4294967295|0;return(Ln[i&255]+Ln[i>>8&255]+Ln[i>>16&255]+Ln[i>>24&255]+"-"+Ln[e&255]+Ln[e>>8&255]+"-"+Ln[e>>16&15|64]+Ln[e>>24&255]+"-"+Ln[t&63|128]+Ln[t>>8&255]+"-"+Ln[t>>16&255]+Ln[t>>24&255]+Ln[n&255]+Ln[n>>8&255]+Ln[n>>16&255]+Ln[n>>24&255]).toLowerCase()}function ct(i,e,t){return Math.max(e,Math.min(t,i))}function wd(i,e){return(i%e+e)%e}function tv(i,e,t,n,s){return n+(i-e)*(s-n)/(t-e)}function nv(i,e,t){return i!==e?(t-i)/(e-i):0}function Qo(i,e,t){return(1-t)*i+t*e}function iv(i,e,t,n){return Qo(i,e,1-Math.exp(-t*n))}function sv(i,e=1){return e-Math.abs(wd(i,e*2)-e)}function rv(i,e,t){return i<=e?0:i>=t?1:(i=(i-e)/(t-e),i*i*(3-2*i))}function ov(i,e,t){return i<=e?0:i>=t?1:(i=(i-e)/(t-e),i*i*i*(i*(i*6-15)+10))}function av(i,e){return i+Math.floor(Math.random()*(e-i+1))}function lv(i,e){return i+Math.random()*(e-i)}function cv(i){return i*(.5-Math.random())}function hv(i){i!==void 0&&(hm=i);let e=hm+=1831565813;return e=Math.imul(e^e>>>15,e|1),e^=e+Math.imul(e^e>>>7,e|61),((e^e>>>14)>>>0)/4294967296}function uv(i){return i*jo}function dv(i){return i*ao}function fv(i){return i>0&&Number.isInteger(i)&&2**Math.round(Math.log2(i))===i}function pv(i){return Math.pow(2,Math.ceil(Math.log(i)/Math.LN2))}function Ed(i){return Math.pow(2,Math.floor(Math.log(i)/Math.LN2))}function mv(i,e,t,n,s){let r=Math.cos,o=Math.sin,a=r(t/2),l=o(t/2),c=r((e+n)/2),h=o((e+n)/2),u=r((e-n)/2),d=o((e-n)/2),f=r((n-e)/2),p=o((n-e)/2);switch(s){case"XYX":i.set(a*h,l*u,l*d,a*c);break;case"YZY":i.set(l*d,a*h,l*u,a*c);break;case"ZXZ":i.set(l*u,l*d,a*h,a*c);break;case"XZX":i.set(a*h,l*p,l*f,a*c);break;case"YXY":i.set(l*f,a*h,l*p,a*c);break;case"ZYZ":i.set(l*p,l*f,a*h,a*c);break;default:$e("MathUtils: .setQuaternionFromProperEuler() encountered an unknown order: "+s)}}function Td(i){switch(i.constructor){case Uint32Array:return 4294967295;case Uint16Array:return 65535;case Uint8Array:case Uint8ClampedArray:return 255;case Int32Array:return 2147483647;case Int16Array:return 32767;case Int8Array:return 127;default:return}}function Mg(i,e){if(e.constructor===Float32Array)return i;let t=Td(e);if(t===void 0)throw new Error("THREE.MathUtils: Invalid component type.");return Math.max(i/t,-1)}function wg(i,e){if(e.constructor===Float32Array)return i;let t=Td(e);if(t===void 0)throw new Error("THREE.MathUtils: Invalid component type.");return Math.round(i*t)}var Ad={DEG2RAD:jo,RAD2DEG:ao,generateUUID:bo,clamp:ct,euclideanModulo:wd,mapLinear:tv,inverseLerp:nv,lerp:Qo,damp:iv,pingpong:sv,smoothstep:rv,smootherstep:ov,randInt:av,randFloat:lv,randFloatSpread:cv,seededRandom:hv,degToRad:uv,radToDeg:dv,isPowerOfTwo:fv,ceilPowerOfTwo:pv,floorPowerOfTwo:Ed,setQuaternionFromProperEuler:mv,normalize:wg,denormalize:Mg},Dd=class Dd{constructor(e=0,t=0){this.x=e,this.y=t}get width(){return this.x}set width(e){this.x=e}get height(){return this.y}set height(e){this.y=e}set(e,t){return this.x=e,this.y=t,this}setScalar(e){return this.x=e,this.y=e,this}setX(e){return this.x=e,this}setY(e){return this.y=e,this}setComponent(e,t){switch(e){case 0:this.x=t;break;case 1:this.y=t;break;default:throw new Error("THREE.Vector2: index is out of range: "+e)}return this}getComponent(e){switch(e){case 0:return this.x;case 1:return this.y;default:throw new Error("THREE.Vector2: index is out of range: "+e)}}clone(){return new this.constructor(this.x,this.y)}copy(e){return this.x=e.x,this.y=e.y,this}add(e){return this.x+=e.x,this.y+=e.y,this}addScalar(e){return this.x+=e,this.y+=e,this}addVectors(e,t){return this.x=e.x+t.x,this.y=e.y+t.y,this}addScaledVector(e,t){return this.x+=e.x*t,this.y+=e.y*t,this}sub(e){return this.x-=e.x,this.y-=e.y,this}subScalar(e){return this.x-=e,this.y-=e,this}subVectors(e,t){return this.x=e.x-t.x,this.y=e.y-t.y,this}multiply(e){return this.x*=e.x,this.y*=e.y,this}multiplyScalar(e){return this.x*=e,this.y*=e,this}divide(e){return this.x/=e.x,this.y/=e.y,this}divideScalar(e){return this.multiplyScalar(1/e)}applyMatrix3(e){let t=this.x,n=this.y,s=e.elements;return this.x=s[0]*t+s[3]*n+s[6],this.y=s[1]*t+s[4]*n+s[7],this}min(e){return this.x=Math.min(this.x,e.x),this.y=Math.min(this.y,e.y),this}max(e){return this.x=Math.max(this.x,e.x),this.y=Math.max(this.y,e.y),this}clamp(e,t){return this.x=ct(this.x,e.x,t.x),this.y=ct(this.y,e.y,t.y),this}clampScalar(e,t){return this.x=ct(this.x,e,t),this.y=ct(this.y,e,t),this}clampLength(e,t){let n=this.length();return this.divideScalar(n||1).multiplyScalar(ct(n,e,t))}floor(){return this.x=Math.floor(this.x),this.y=Math.floor(this.y),this}ceil(){return this.x=Math.ceil(this.x),this.y=Math.ceil(this.y),this}round(){return this.x=Math.round(this.x),this.y=Math.round(this.y),this}roundToZero(){return this.x=Math.trunc(this.x),this.y=Math.trunc(this.y),this}negate(){return this.x=-this.x,this.y=-this.y,this}dot(e){return this.x*e.x+this.y*e.y}cross(e){return this.x*e.y-this.y*e.x}lengthSq(){return this.x*this.x+this.y*this.y}length(){return Math.sqrt(this.x*this.x+this.y*this.y)}manhattanLength(){return Math.abs(this.x)+Math.abs(this.y)}normalize(){return this.divideScalar(this.length()||1)}angle(){return Math.atan2(-this.y,-this.x)+Math.PI}angleTo(e){let t=Math.sqrt(this.lengthSq()*e.lengthSq());if(t===0)return Math.PI/2;let n=this.dot(e)/t;return Math.acos(ct(n,-1,1))}distanceTo(e){return Math.sqrt(this.distanceToSquared(e))}distanceToSquared(e){let t=this.x-e.x,n=this.y-e.y;return t*t+n*n}manhattanDistanceTo(e){return Math.abs(this.x-e.x)+Math.abs(this.y-e.y)}setLength(e){return this.normalize().multiplyScalar(e)}lerp(e,t){return this.x+=(e.x-this.x)*t,this.y+=(e.y-this.y)*t,this}lerpVectors(e,t,n){return this.x=e.x+(t.x-e.x)*n,this.y=e.y+(t.y-e.y)*n,this}equals(e){return e.x===this.x&&e.y===this.y}fromArray(e,t=0){return this.x=e[t],this.y=e[t+1],this}toArray(e=[],t=0){return e[t]=this.x,e[t+1]=this.y,e}fromBufferAttribute(e,t){return this.x=e.getX(t),this.y=e.getY(t),this}rotateAround(e,t){let n=Math.cos(t),s=Math.sin(t),r=this.x-e.x,o=this.y-e.y;return this.x=r*n-o*s+e.x,this.y=r*s+o*n+e.y,this}random(){return this.x=Math.random(),this.y=Math.random(),this}*[Symbol.iterator](){yield this.x,yield this.y}};Dd.prototype.isVector2=!0;var ze=Dd,ai=class{constructor(e=0,t=0,n=0,s=1){this.isQuaternion=!0,this._x=e,this._y=t,this._z=n,this._w=s}static slerpFlat(e,t,n,s,r,o,a){let l=n[s+0],c=n[s+1],h=n[s+2],u=n[s+3],d=r[o+0],f=r[o+1],p=r[o+2],y=r[o+3];if(u!==y||l!==d||c!==f||h!==p){let m=l*d+c*f+h*p+u*y;m<0&&(d=-d,f=-f,p=-p,y=-y,m=-m);let g=1-a;if(m<.9995){let v=Math.acos(m),A=Math.sin(v);g=Math.sin(g*v)/A,a=Math.sin(a*v)/A,l=l*g+d*a,c=c*g+f*a,h=h*g+p*a,u=u*g+y*a}else{l=l*g+d*a,c=c*g+f*a,h=h*g+p*a,u=u*g+y*a;let v=1/Math.sqrt(l*l+c*c+h*h+u*u);l*=v,c*=v,h*=v,u*=v}}e[t]=l,e[t+1]=c,e[t+2]=h,e[t+3]=u}static multiplyQuaternionsFlat(e,t,n,s,r,o){let a=n[s],l=n[s+1],c=n[s+2],h=n[s+3],u=r[o],d=r[o+1],f=r[o+2],p=r[o+3];return e[t]=a*p+h*u+l*f-c*d,e[t+1]=l*p+h*d+c*u-a*f,e[t+2]=c*p+h*f+a*d-l*u,e[t+3]=h*p-a*u-l*d-c*f,e}get x(){return this._x}set x(e){this._x=e,this._onChangeCallback()}get y(){return this._y}set y(e){this._y=e,this._onChangeCallback()}get z(){return this._z}set z(e){this._z=e,this._onChangeCallback()}get w(){return this._w}set w(e){this._w=e,this._onChangeCallback()}set(e,t,n,s){return this._x=e,this._y=t,this._z=n,this._w=s,this._onChangeCallback(),this}clone(){return new this.constructor(this._x,this._y,this._z,this._w)}copy(e){return this._x=e.x,this._y=e.y,this._z=e.z,this._w=e.w,this._onChangeCallback(),this}setFromEuler(e,t=!0){let n=e._x,s=e._y,r=e._z,o=e._order,a=Math.cos,l=Math.sin,c=a(n/2),h=a(s/2),u=a(r/2),d=l(n/2),f=l(s/2),p=l(r/2);switch(o){case"XYZ":this._x=d*h*u+c*f*p,this._y=c*f*u-d*h*p,this._z=c*h*p+d*f*u,this._w=c*h*u-d*f*p;break;case"YXZ":this._x=d*h*u+c*f*p,this._y=c*f*u-d*h*p,this._z=c*h*p-d*f*u,this._w=c*h*u+d*f*p;break;case"ZXY":this._x=d*h*u-c*f*p,this._y=c*f*u+d*h*p,this._z=c*h*p+d*f*u,this._w=c*h*u-d*f*p;break;case"ZYX":this._x=d*h*u-c*f*p,this._y=c*f*u+d*h*p,this._z=c*h*p-d*f*u,this._w=c*h*u+d*f*p;break;case"YZX":this._x=d*h*u+c*f*p,this._y=c*f*u+d*h*p,this._z=c*h*p-d*f*u,this._w=c*h*u-d*f*p;break;case"XZY":this._x=d*h*u-c*f*p,this._y=c*f*u-d*h*p,this._z=c*h*p+d*f*u,this._w=c*h*u+d*f*p;break;default:$e("Quaternion: .setFromEuler() encountered an unknown order: "+o)}return t===!0&&this._onChangeCallback(),this}setFromAxisAngle(e,t){let n=t/2,s=Math.sin(n);return this._x=e.x*s,this._y=e.y*s,this._z=e.z*s,this._w=Math.cos(n),this._onChangeCallback(),this}setFromRotationMatrix(e){let t=e.elements,n=t[0],s=t[4],r=t[8],o=t[1],a=t[5],l=t[9],c=t[2],h=t[6],u=t[10],d=n+a+u;if(d>0){let f=.5/Math.sqrt(d+1);this._w=.25/f,this._x=(h-l)*f,this._y=(r-c)*f,this._z=(o-s)*f}else if(n>a&&n>u){let f=2*Math.sqrt(1+n-a-u);this._w=(h-l)/f,this._x=.25*f,this._y=(s+o)/f,this._z=(r+c)/f}else if(a>u){let f=2*Math.sqrt(1+a-n-u);this._w=(r-c)/f,this._x=(s+o)/f,this._y=.25*f,this._z=(l+h)/f}else{let f=2*Math.sqrt(1+u-n-a);this._w=(o-s)/f,this._x=(r+c)/f,this._y=(l+h)/f,this._z=.25*f}return this._onChangeCallback(),this}setFromUnitVectors(e,t){let n=e.dot(t)+1;return n<1e-8?(n=0,Math.abs(e.x)>Math.abs(e.z)?(this._x=-e.y,this._y=e.x,this._z=0,this._w=n):(this._x=0,this._y=-e.z,this._z=e.y,this._w=n)):(this._x=e.y*t.z-e.z*t.y,this._y=e.z*t.x-e.x*t.z,this._z=e.x*t.y-e.y*t.x,this._w=n),this.normalize()}angleTo(e){return 2*Math.acos(Math.abs(ct(this.dot(e),-1,1)))}rotateTowards(e,t){let n=this.angleTo(e);if(n===0)return this;let s=Math.min(1,t/n);return this.slerp(e,s),this}identity(){return this.set(0,0,0,1)}invert(){return this.conjugate()}conjugate(){return this._x*=-1,this._y*=-1,this._z*=-1,this._onChangeCallback(),this}dot(e){return this._x*e._x+this._y*e._y+this._z*e._z+this._w*e._w}lengthSq(){return this._x*this._x+this._y*this._y+this._z*this._z+this._w*this._w}length(){return Math.sqrt(this._x*this._x+this._y*this._y+this._z*this._z+this._w*this._w)}normalize(){let e=this.length();return e===0?(this._x=0,this._y=0,this._z=0,this._w=1):(e=1/e,this._x=this._x*e,this._y=this._y*e,this._z=this._z*e,this._w=this._w*e),this._onChangeCallback(),this}multiply(e){return this.multiplyQuaternions(this,e)}premultiply(e){return this.multiplyQuaternions(e,this)}multiplyQuaternions(e,t){let n=e._x,s=e._y,r=e._z,o=e._w,a=t._x,l=t._y,c=t._z,h=t._w;return this._x=n*h+o*a+s*c-r*l,this._y=s*h+o*l+r*a-n*c,this._z=r*h+o*c+n*l-s*a,this._w=o*h-n*a-s*l-r*c,this._onChangeCallback(),this}slerp(e,t){let n=e._x,s=e._y,r=e._z,o=e._w,a=this.dot(e);a<0&&(n=-n,s=-s,r=-r,o=-o,a=-a);let l=1-t;if(a<.9995){let c=Math.acos(a),h=Math.sin(c);l=Math.sin(l*c)/h,t=Math.sin(t*c)/h,this._x=this._x*l+n*t,this._y=this._y*l+s*t,this._z=this._z*l+r*t,this._w=this._w*l+o*t,this._onChangeCallback()}else this._x=this._x*l+n*t,this._y=this._y*l+s*t,this._z=this._z*l+r*t,this._w=this._w*l+o*t,this.normalize();return this}slerpQuaternions(e,t,n){return this.copy(e).slerp(t,n)}random(){let e=2*Math.PI*Math.random(),t=2*Math.PI*Math.random(),n=Math.random(),s=Math.sqrt(1-n),r=Math.sqrt(n);return this.set(s*Math.sin(e),s*Math.cos(e),r*Math.sin(t),r*Math.cos(t))}equals(e){return e._x===this._x&&e._y===this._y&&e._z===this._z&&e._w===this._w}fromArray(e,t=0){return this._x=e[t],this._y=e[t+1],this._z=e[t+2],this._w=e[t+3],this._onChangeCallback(),this}toArray(e=[],t=0){return e[t]=this._x,e[t+1]=this._y,e[t+2]=this._z,e[t+3]=this._w,e}fromBufferAttribute(e,t){return this._x=e.getX(t),this._y=e.getY(t),this._z=e.getZ(t),this._w=e.getW(t),this._onChangeCallback(),this}toJSON(){return this.toArray()}_onChange(e){return this._onChangeCallback=e,this}_onChangeCallback(){}*[Symbol.iterator](){yield this._x,yield this._y,yield this._z,yield this._w}},Nd=class Nd{constructor(e=0,t=0,n=0){this.x=e,this.y=t,this.z=n}set(e,t,n){return n===void 0&&(n=this.z),this.x=e,this.y=t,this.z=n,this}setScalar(e){return this.x=e,this.y=e,this.z=e,this}setX(e){return this.x=e,this}setY(e){return this.y=e,this}setZ(e){return this.z=e,this}setComponent(e,t){switch(e){case 0:this.x=t;break;case 1:this.y=t;break;case 2:this.z=t;break;default:throw new Error("THREE.Vector3: index is out of range: "+e)}return this}getComponent(e){switch(e){case 0:return this.x;case 1:return this.y;case 2:return this.z;default:throw new Error("THREE.Vector3: index is out of range: "+e)}}clone(){return new this.constructor(this.x,this.y,this.z)}copy(e){return this.x=e.x,this.y=e.y,this.z=e.z,this}add(e){return this.x+=e.x,this.y+=e.y,this.z+=e.z,this}addScalar(e){return this.x+=e,this.y+=e,this.z+=e,this}addVectors(e,t){return this.x=e.x+t.x,this.y=e.y+t.y,this.z=e.z+t.z,this}addScaledVector(e,t){return this.x+=e.x*t,this.y+=e.y*t,this.z+=e.z*t,this}sub(e){return this.x-=e.x,this.y-=e.y,this.z-=e.z,this}subScalar(e){return this.x-=e,this.y-=e,this.z-=e,this}subVectors(e,t){return this.x=e.x-t.x,this.y=e.y-t.y,this.z=e.z-t.z,this}multiply(e){return this.x*=e.x,this.y*=e.y,this.z*=e.z,this}multiplyScalar(e){return this.x*=e,this.y*=e,this.z*=e,this}multiplyVectors(e,t){return this.x=e.x*t.x,this.y=e.y*t.y,this.z=e.z*t.z,this}applyEuler(e){return this.applyQuaternion(um.setFromEuler(e))}applyAxisAngle(e,t){return this.applyQuaternion(um.setFromAxisAngle(e,t))}applyMatrix3(e){let t=this.x,n=this.y,s=this.z,r=e.elements;return this.x=r[0]*t+r[3]*n+r[6]*s,this.y=r[1]*t+r[4]*n+r[7]*s,this.z=r[2]*t+r[5]*n+r[8]*s,this}applyNormalMatrix(e){return this.applyMatrix3(e).normalize()}applyMatrix4(e){let t=this.x,n=this.y,s=this.z,r=e.elements,o=1/(r[3]*t+r[7]*n+r[11]*s+r[15]);return this.x=(r[0]*t+r[4]*n+r[8]*s+r[12])*o,this.y=(r[1]*t+r[5]*n+r[9]*s+r[13])*o,this.z=(r[2]*t+r[6]*n+r[10]*s+r[14])*o,this}applyQuaternion(e){let t=this.x,n=this.y,s=this.z,r=e.x,o=e.y,a=e.z,l=e.w,c=2*(o*s-a*n),h=2*(a*t-r*s),u=2*(r*n-o*t);return this.x=t+l*c+o*u-a*h,this.y=n+l*h+a*c-r*u,this.z=s+l*u+r*h-o*c,this}project(e){return this.applyMatrix4(e.matrixWorldInverse).applyMatrix4(e.projectionMatrix)}unproject(e){return this.applyMatrix4(e.projectionMatrixInverse).applyMatrix4(e.matrixWorld)}transformDirection(e){let t=this.x,n=this.y,s=this.z,r=e.elements;return this.x=r[0]*t+r[4]*n+r[8]*s,this.y=r[1]*t+r[5]*n+r[9]*s,this.z=r[2]*t+r[6]*n+r[10]*s,this.normalize()}divide(e){return this.x/=e.x,this.y/=e.y,this.z/=e.z,this}divideScalar(e){return this.multiplyScalar(1/e)}min(e){return this.x=Math.min(this.x,e.x),this.y=Math.min(this.y,e.y),this.z=Math.min(this.z,e.z),this}max(e){return this.x=Math.max(this.x,e.x),this.y=Math.max(this.y,e.y),this.z=Math.max(this.z,e.z),this}clamp(e,t){return this.x=ct(this.x,e.x,t.x),this.y=ct(this.y,e.y,t.y),this.z=ct(this.z,e.z,t.z),this}clampScalar(e,t){return this.x=ct(this.x,e,t),this.y=ct(this.y,e,t),this.z=ct(this.z,e,t),this}clampLength(e,t){let n=this.length();return this.divideScalar(n||1).multiplyScalar(ct(n,e,t))}floor(){return this.x=Math.floor(this.x),this.y=Math.floor(this.y),this.z=Math.floor(this.z),this}ceil(){return this.x=Math.ceil(this.x),this.y=Math.ceil(this.y),this.z=Math.ceil(this.z),this}round(){return this.x=Math.round(this.x),this.y=Math.round(this.y),this.z=Math.round(this.z),this}roundToZero(){return this.x=Math.trunc(this.x),this.y=Math.trunc(this.y),this.z=Math.trunc(this.z),this}negate(){return this.x=-this.x,this.y=-this.y,this.z=-this.z,this}dot(e){return this.x*e.x+this.y*e.y+this.z*e.z}lengthSq(){return this.x*this.x+this.y*this.y+this.z*this.z}length(){return Math.sqrt(this.x*this.x+this.y*this.y+this.z*this.z)}manhattanLength(){return Math.abs(this.x)+Math.abs(this.y)+Math.abs(this.z)}normalize(){return this.divideScalar(this.length()||1)}setLength(e){return this.normalize().multiplyScalar(e)}lerp(e,t){return this.x+=(e.x-this.x)*t,this.y+=(e.y-this.y)*t,this.z+=(e.z-this.z)*t,this}lerpVectors(e,t,n){return this.x=e.x+(t.x-e.x)*n,this.y=e.y+(t.y-e.y)*n,this.z=e.z+(t.z-e.z)*n,this}cross(e){return this.crossVectors(this,e)}crossVectors(e,t){let n=e.x,s=e.y,r=e.z,o=t.x,a=t.y,l=t.z;return this.x=s*l-r*a,this.y=r*o-n*l,this.z=n*a-s*o,this}projectOnVector(e){let t=e.lengthSq();if(t===0)return this.set(0,0,0);let n=e.dot(this)/t;return this.copy(e).multiplyScalar(n)}projectOnPlane(e){return Su.copy(this).projectOnVector(e),this.sub(Su)}reflect(e){return this.sub(Su.copy(e).multiplyScalar(2*this.dot(e)))}angleTo(e){let t=Math.sqrt(this.lengthSq()*e.lengthSq());if(t===0)return Math.PI/2;let n=this.dot(e)/t;return Math.acos(ct(n,-1,1))}distanceTo(e){return Math.sqrt(this.distanceToSquared(e))}distanceToSquared(e){let t=this.x-e.x,n=this.y-e.y,s=this.z-e.z;return t*t+n*n+s*s}manhattanDistanceTo(e){return Math.abs(this.x-e.x)+Math.abs(this.y-e.y)+Math.abs(this.z-e.z)}setFromSpherical(e){return this.setFromSphericalCoords(e.radius,e.phi,e.theta)}setFromSphericalCoords(e,t,n){let s=Math.sin(t)*e;return this.x=s*Math.sin(n),this.y=Math.cos(t)*e,this.z=s*Math.cos(n),this}setFromCylindrical(e){return this.setFromCylindricalCoords(e.radius,e.theta,e.y)}setFromCylindricalCoords(e,t,n){return this.x=e*Math.sin(t),this.y=n,this.z=e*Math.cos(t),this}setFromMatrixPosition(e){let t=e.elements;return this.x=t[12],this.y=t[13],this.z=t[14],this}setFromMatrixScale(e){let t=this.setFromMatrixColumn(e,0).length(),n=this.setFromMatrixColumn(e,1).length(),s=this.setFromMatrixColumn(e,2).length();return this.x=t,this.y=n,this.z=s,this}setFromMatrixColumn(e,t){return this.fromArray(e.elements,t*4)}setFromMatrix3Column(e,t){return this.fromArray(e.elements,t*3)}setFromEuler(e){return this.x=e._x,this.y=e._y,this.z=e._z,this}setFromColor(e){return this.x=e.r,this.y=e.g,this.z=e.b,this}equals(e){return e.x===this.x&&e.y===this.y&&e.z===this.z}fromArray(e,t=0){return this.x=e[t],this.y=e[t+1],this.z=e[t+2],this}toArray(e=[],t=0){return e[t]=this.x,e[t+1]=this.y,e[t+2]=this.z,e}fromBufferAttribute(e,t){return this.x=e.getX(t),this.y=e.getY(t),this.z=e.getZ(t),this}random(){return this.x=Math.random(),this.y=Math.random(),this.z=Math.random(),this}randomDirection(){let e=Math.random()*Math.PI*2,t=Math.random()*2-1,n=Math.sqrt(1-t*t);return this.x=n*Math.cos(e),this.y=t,this.z=n*Math.sin(e),this}*[Symbol.iterator](){yield this.x,yield this.y,yield this.z}};Nd.prototype.isVector3=!0;var F=Nd,Su=new F,um=new ai,Ud=class Ud{constructor(e,t,n,s,r,o,a,l,c){this.elements=[1,0,0,0,1,0,0,0,1],e!==void 0&&this.set(e,t,n,s,r,o,a,l,c)}set(e,t,n,s,r,o,a,l,c){let h=this.elements;return h[0]=e,h[1]=s,h[2]=a,h[3]=t,h[4]=r,h[5]=l,h[6]=n,h[7]=o,h[8]=c,this}identity(){return this.set(1,0,0,0,1,0,0,0,1),this}copy(e){let t=this.elements,n=e.elements;return t[0]=n[0],t[1]=n[1],t[2]=n[2],t[3]=n[3],t[4]=n[4],t[5]=n[5],t[6]=n[6],t[7]=n[7],t[8]=n[8],this}extractBasis(e,t,n){return e.setFromMatrix3Column(this,0),t.setFromMatrix3Column(this,1),n.setFromMatrix3Column(this,2),this}setFromMatrix4(e){let t=e.elements;return this.set(t[0],t[4],t[8],t[1],t[5],t[9],t[2],t[6],t[10]),this}multiply(e){return this.multiplyMatrices(this,e)}premultiply(e){return this.multiplyMatrices(e,this)}multiplyMatrices(e,t){let n=e.elements,s=t.elements,r=this.elements,o=n[0],a=n[3],l=n[6],c=n[1],h=n[4],u=n[7],d=n[2],f=n[5],p=n[8],y=s[0],m=s[3],g=s[6],v=s[1],A=s[4],S=s[7],C=s[2],T=s[5],x=s[8];return r[0]=o*y+a*v+l*C,r[3]=o*m+a*A+l*T,r[6]=o*g+a*S+l*x,r[1]=c*y+h*v+u*C,r[4]=c*m+h*A+u*T,r[7]=c*g+h*S+u*x,r[2]=d*y+f*v+p*C,r[5]=d*m+f*A+p*T,r[8]=d*g+f*S+p*x,this}multiplyScalar(e){let t=this.elements;return t[0]*=e,t[3]*=e,t[6]*=e,t[1]*=e,t[4]*=e,t[7]*=e,t[2]*=e,t[5]*=e,t[8]*=e,this}determinant(){let e=this.elements,t=e[0],n=e[1],s=e[2],r=e[3],o=e[4],a=e[5],l=e[6],c=e[7],h=e[8];return t*o*h-t*a*c-n*r*h+n*a*l+s*r*c-s*o*l}invert(){let e=this.elements,t=e[0],n=e[1],s=e[2],r=e[3],o=e[4],a=e[5],l=e[6],c=e[7],h=e[8],u=h*o-a*c,d=a*l-h*r,f=c*r-o*l,p=t*u+n*d+s*f;if(p===0)return this.set(0,0,0,0,0,0,0,0,0);let y=1/p;return e[0]=u*y,e[1]=(s*c-h*n)*y,e[2]=(a*n-s*o)*y,e[3]=d*y,e[4]=(h*t-s*l)*y,e[5]=(s*r-a*t)*y,e[6]=f*y,e[7]=(n*l-c*t)*y,e[8]=(o*t-n*r)*y,this}transpose(){let e,t=this.elements;return e=t[1],t[1]=t[3],t[3]=e,e=t[2],t[2]=t[6],t[6]=e,e=t[5],t[5]=t[7],t[7]=e,this}getNormalMatrix(e){return this.setFromMatrix4(e).invert().transpose()}transposeIntoArray(e){let t=this.elements;return e[0]=t[0],e[1]=t[3],e[2]=t[6],e[3]=t[1],e[4]=t[4],e[5]=t[7],e[6]=t[2],e[7]=t[5],e[8]=t[8],this}setUvTransform(e,t,n,s,r,o,a){let l=Math.cos(r),c=Math.sin(r);return this.set(n*l,n*c,-n*(l*o+c*a)+o+e,-s*c,s*l,-s*(-c*o+l*a)+a+t,0,0,1),this}scale(e,t){return Jo("Matrix3: .scale() is deprecated. Use .makeScale() instead."),this.premultiply(Mu.makeScale(e,t)),this}rotate(e){return Jo("Matrix3: .rotate() is deprecated. Use .makeRotation() instead."),this.premultiply(Mu.makeRotation(-e)),this}translate(e,t){return Jo("Matrix3: .translate() is deprecated. Use .makeTranslation() instead."),this.premultiply(Mu.makeTranslation(e,t)),this}makeTranslation(e,t){return e.isVector2?this.set(1,0,e.x,0,1,e.y,0,0,1):this.set(1,0,e,0,1,t,0,0,1),this}makeRotation(e){let t=Math.cos(e),n=Math.sin(e);return this.set(t,-n,0,n,t,0,0,0,1),this}makeScale(e,t){return this.set(e,0,0,0,t,0,0,0,1),this}equals(e){let t=this.elements,n=e.elements;for(let s=0;s<9;s++)if(t[s]!==n[s])return!1;return!0}fromArray(e,t=0){for(let n=0;n<9;n++)this.elements[n]=e[n+t];return this}toArray(e=[],t=0){let n=this.elements;return e[t]=n[0],e[t+1]=n[1],e[t+2]=n[2],e[t+3]=n[3],e[t+4]=n[4],e[t+5]=n[5],e[t+6]=n[6],e[t+7]=n[7],e[t+8]=n[8],e}clone(){return new this.constructor().fromArray(this.elements)}};Ud.prototype.isMatrix3=!0;var tt=Ud,Mu=new tt,dm=new tt().set(.4123908,.3575843,.1804808,.212639,.7151687,.0721923,.0193308,.1191948,.9505322),fm=new tt().set(3.2409699,-1.5373832,-.4986108,-.9692436,1.8759675,.0415551,.0556301,-.203977,1.0569715);function gv(){let i={enabled:!0,workingColorSpace:lr,spaces:{},convert:function(s,r,o){return this.enabled===!1||r===o||!r||!o||(this.spaces[r].transfer===Tt&&(s.r=hs(s.r),s.g=hs(s.g),s.b=hs(s.b)),this.spaces[r].primaries!==this.spaces[o].primaries&&(s.applyMatrix3(this.spaces[r].toXYZ),s.applyMatrix3(this.spaces[o].fromXYZ)),this.spaces[o].transfer===Tt&&(s.r=so(s.r),s.g=so(s.g),s.b=so(s.b))),s},workingToColorSpace:function(s,r){return this.convert(s,this.workingColorSpace,r)},colorSpaceToWorking:function(s,r){return this.convert(s,r,this.workingColorSpace)},getPrimaries:function(s){return this.spaces[s].primaries},getTransfer:function(s){return s===gs?ia:this.spaces[s].transfer},getToneMappingMode:function(s){return this.spaces[s].outputColorSpaceConfig.toneMappingMode||"standard"},getLuminanceCoefficients:function(s,r=this.workingColorSpace){return s.fromArray(this.spaces[r].luminanceCoefficients)},define:function(s){Object.assign(this.spaces,s)},_getMatrix:function(s,r,o){return s.copy(this.spaces[o].fromXYZ).multiply(this.spaces[r].toXYZ)},_getDrawingBufferColorSpace:function(s){return this.spaces[s].outputColorSpaceConfig.drawingBufferColorSpace},_getUnpackColorSpace:function(s=this.workingColorSpace){return this.spaces[s].workingColorSpaceConfig.unpackColorSpace}},e=[.64,.33,.3,.6,.15,.06],t=[.2126,.7152,.0722],n=[.3127,.329];return i.define({[lr]:{primaries:e,whitePoint:n,transfer:ia,toXYZ:dm,fromXYZ:fm,luminanceCoefficients:t,workingColorSpaceConfig:{unpackColorSpace:ri},outputColorSpaceConfig:{drawingBufferColorSpace:ri}},[ri]:{primaries:e,whitePoint:n,transfer:Tt,toXYZ:dm,fromXYZ:fm,luminanceCoefficients:t,outputColorSpaceConfig:{drawingBufferColorSpace:ri}}}),i}var pt=gv();function hs(i){return i<.04045?i*.0773993808:Math.pow(i*.9478672986+.0521327014,2.4)}function so(i){return i<.0031308?i*12.92:1.055*Math.pow(i,.41666)-.055}var Xr,tc=class{static getDataURL(e,t="image/png"){if(/^data:/i.test(e.src)||typeof HTMLCanvasElement>"u")return e.src;let n;if(e instanceof HTMLCanvasElement)n=e;else{Xr===void 0&&(Xr=ra("canvas")),Xr.width=e.width,Xr.height=e.height;let s=Xr.getContext("2d");e instanceof ImageData?s.putImageData(e,0,0):s.drawImage(e,0,0,e.width,e.height),n=Xr}return n.toDataURL(t)}static sRGBToLinear(e){if(typeof HTMLImageElement<"u"&&e instanceof HTMLImageElement||typeof HTMLCanvasElement<"u"&&e instanceof HTMLCanvasElement||typeof ImageBitmap<"u"&&e instanceof ImageBitmap){let t=ra("canvas");t.width=e.width,t.height=e.height;let n=t.getContext("2d");n.drawImage(e,0,0,e.width,e.height);let s=n.getImageData(0,0,e.width,e.height),r=s.data;for(let o=0;o<r.length;o++)r[o]=hs(r[o]/255)*255;return n.putImageData(s,0,0),t}else if(e.data){let t=e.data.slice(0);for(let n=0;n<t.length;n++)t instanceof Uint8Array||t instanceof Uint8ClampedArray?t[n]=Math.floor(hs(t[n]/255)*255):t[n]=hs(t[n]);return{data:t,width:e.width,height:e.height}}else return $e("ImageUtils.sRGBToLinear(): Unsupported image type. No color space conversion applied."),e}},_v=0,lo=class{constructor(e=null){this.isTextureSource=!0,Object.defineProperty(this,"id",{value:_v++}),this.uuid=bo(),this.data=e,this.dataReady=!0,this.version=0}getSize(e){let t=this.data;return typeof HTMLVideoElement<"u"&&t instanceof HTMLVideoElement?e.set(t.videoWidth,t.videoHeight,0):typeof VideoFrame<"u"&&t instanceof VideoFrame?e.set(t.displayWidth,t.displayHeight,0):t!==null?e.set(t.width||0,t.height||0,t.depth||0):e.set(0,0,0),e}set needsUpdate(e){e===!0&&this.version++}toJSON(e){let t=e===void 0||typeof e=="string";if(!t&&e.images[this.uuid]!==void 0)return e.images[this.uuid];let n={uuid:this.uuid,url:""},s=this.data;if(s!==null){let r;if(Array.isArray(s)){r=[];for(let o=0,a=s.length;o<a;o++)s[o].isDataTexture?r.push(wu(s[o].image)):r.push(wu(s[o]))}else r=wu(s);n.url=r}return t||(e.images[this.uuid]=n),n}};function wu(i){return typeof HTMLImageElement<"u"&&i instanceof HTMLImageElement||typeof HTMLCanvasElement<"u"&&i instanceof HTMLCanvasElement||typeof ImageBitmap<"u"&&i instanceof ImageBitmap?tc.getDataURL(i):i.data?{data:Array.from(i.data),width:i.width,height:i.height,type:i.data.constructor.name}:($e("Texture: Unable to serialize Texture."),{})}var xv=0,Eu=new F,qn=class i extends Ci{constructor(e=i.DEFAULT_IMAGE,t=i.DEFAULT_MAPPING,n=Wi,s=Wi,r=Rn,o=ps,a=Di,l=Xn,c=i.DEFAULT_ANISOTROPY,h=gs){super(),this.isTexture=!0,Object.defineProperty(this,"id",{value:xv++}),this.uuid=bo(),this.name="",this.source=new lo(e),this.mipmaps=[],this.mapping=t,this.channel=0,this.wrapS=n,this.wrapT=s,this.magFilter=r,this.minFilter=o,this.anisotropy=c,this.format=a,this.internalFormat=null,this.type=l,this.offset=new ze(0,0),this.repeat=new ze(1,1),this.center=new ze(0,0),this.rotation=0,this.matrixAutoUpdate=!0,this.matrix=new tt,this.generateMipmaps=!0,this.mipmapsAutoUpdate=!0,this.premultiplyAlpha=!1,this.flipY=!0,this.unpackAlignment=4,this.colorSpace=h,this.userData={},this.updateRanges=[],this.version=0,this.onUpdate=null,this.renderTarget=null,this.isRenderTargetTexture=!1,this.isArrayTexture=!!(e&&e.depth&&e.depth>1),this.pmremVersion=0,this.isPMREMTexture=!1,this.normalized=!1}get width(){return this.source.getSize(Eu).x}get height(){return this.source.getSize(Eu).y}get depth(){return this.source.getSize(Eu).z}get image(){return this.source.data}set image(e){this.source.data=e}updateMatrix(){this.matrix.setUvTransform(this.offset.x,this.offset.y,this.repeat.x,this.repeat.y,this.rotation,this.center.x,this.center.y)}addUpdateRange(e,t){this.updateRanges.push({start:e,count:t})}clearUpdateRanges(){this.updateRanges.length=0}clone(){return new this.constructor().copy(this)}copy(e){return this.name=e.name,this.source=e.source,this.mipmaps=e.mipmaps.slice(0),this.mapping=e.mapping,this.channel=e.channel,this.wrapS=e.wrapS,this.wrapT=e.wrapT,this.magFilter=e.magFilter,this.minFilter=e.minFilter,this.anisotropy=e.anisotropy,this.format=e.format,this.internalFormat=e.internalFormat,this.type=e.type,this.normalized=e.normalized,this.offset.copy(e.offset),this.repeat.copy(e.repeat),this.center.copy(e.center),this.rotation=e.rotation,this.matrixAutoUpdate=e.matrixAutoUpdate,this.matrix.copy(e.matrix),this.generateMipmaps=e.generateMipmaps,this.mipmapsAutoUpdate=e.mipmapsAutoUpdate,this.premultiplyAlpha=e.premultiplyAlpha,this.flipY=e.flipY,this.unpackAlignment=e.unpackAlignment,this.colorSpace=e.colorSpace,this.renderTarget=e.renderTarget,this.isRenderTargetTexture=e.isRenderTargetTexture,this.isPMREMTexture=e.isPMREMTexture,this.isArrayTexture=e.isArrayTexture,this.userData=JSON.parse(JSON.stringify(e.userData)),this.needsUpdate=!0,this}setValues(e){for(let t in e){let n=e[t];if(n===void 0){$e(`Texture.setValues(): parameter '${t}' has value of undefined.`);continue}let s=this[t];if(s===void 0){$e(`Texture.setValues(): property '${t}' does not exist.`);continue}s&&n&&s.isVector2&&n.isVector2||s&&n&&s.isVector3&&n.isVector3||s&&n&&s.isMatrix3&&n.isMatrix3?s.copy(n):this[t]=n}}toJSON(e){let t=e===void 0||typeof e=="string";if(!t&&e.textures[this.uuid]!==void 0)return e.textures[this.uuid];let n={metadata:{version:4.7,type:"Texture",generator:"Texture.toJSON"},uuid:this.uuid,name:this.name,image:this.source.toJSON(e).uuid,mapping:this.mapping,channel:this.channel,repeat:[this.repeat.x,this.repeat.y],offset:[this.offset.x,this.offset.y],center:[this.center.x,this.center.y],rotation:this.rotation,wrap:[this.wrapS,this.wrapT],format:this.format,internalFormat:this.internalFormat,type:this.type,normalized:this.normalized,colorSpace:this.colorSpace,minFilter:this.minFilter,magFilter:this.magFilter,anisotropy:this.anisotropy,flipY:this.flipY,generateMipmaps:this.generateMipmaps,mipmapsAutoUpdate:this.mipmapsAutoUpdate,premultiplyAlpha:this.premultiplyAlpha,unpackAlignment:this.unpackAlignment};return Object.keys(this.userData).length>0&&(n.userData=this.userData),t||(e.textures[this.uuid]=n),n}dispose(){this.dispatchEvent({type:"dispose"})}transformUv(e){if(this.mapping!==dd)return e;if(e.applyMatrix3(this.matrix),e.x<0||e.x>1)switch(this.wrapS){case jl:e.x=e.x-Math.floor(e.x);break;case Wi:e.x=e.x<0?0:1;break;case Ql:Math.abs(Math.floor(e.x)%2)===1?e.x=Math.ceil(e.x)-e.x:e.x=e.x-Math.floor(e.x);break}if(e.y<0||e.y>1)switch(this.wrapT){case jl:e.y=e.y-Math.floor(e.y);break;case Wi:e.y=e.y<0?0:1;break;case Ql:Math.abs(Math.floor(e.y)%2)===1?e.y=Math.ceil(e.y)-e.y:e.y=e.y-Math.floor(e.y);break}return this.flipY&&(e.y=1-e.y),e}set needsUpdate(e){e===!0&&(this.version++,this.source.needsUpdate=!0)}set needsPMREMUpdate(e){e===!0&&this.pmremVersion++}};qn.DEFAULT_IMAGE=null;qn.DEFAULT_MAPPING=dd;qn.DEFAULT_ANISOTROPY=1;var Od=class Od{constructor(e=0,t=0,n=0,s=1){this.x=e,this.y=t,this.z=n,this.w=s}get width(){return this.z}set width(e){this.z=e}get height(){return this.w}set height(e){this.w=e}set(e,t,n,s){return this.x=e,this.y=t,this.z=n,this.w=s,this}setScalar(e){return this.x=e,this.y=e,this.z=e,this.w=e,this}setX(e){return this.x=e,this}setY(e){return this.y=e,this}setZ(e){return this.z=e,this}setW(e){return this.w=e,this}setComponent(e,t){switch(e){case 0:this.x=t;break;case 1:this.y=t;break;case 2:this.z=t;break;case 3:this.w=t;break;default:throw new Error("THREE.Vector4: index is out of range: "+e)}return this}getComponent(e){switch(e){case 0:return this.x;case 1:return this.y;case 2:return this.z;case 3:return this.w;default:throw new Error("THREE.Vector4: index is out of range: "+e)}}clone(){return new this.constructor(this.x,this.y,this.z,this.w)}copy(e){return this.x=e.x,this.y=e.y,this.z=e.z,this.w=e.w!==void 0?e.w:1,this}add(e){return this.x+=e.x,this.y+=e.y,this.z+=e.z,this.w+=e.w,this}addScalar(e){return this.x+=e,this.y+=e,this.z+=e,this.w+=e,this}addVectors(e,t){return this.x=e.x+t.x,this.y=e.y+t.y,this.z=e.z+t.z,this.w=e.w+t.w,this}addScaledVector(e,t){return this.x+=e.x*t,this.y+=e.y*t,this.z+=e.z*t,this.w+=e.w*t,this}sub(e){return this.x-=e.x,this.y-=e.y,this.z-=e.z,this.w-=e.w,this}subScalar(e){return this.x-=e,this.y-=e,this.z-=e,this.w-=e,this}subVectors(e,t){return this.x=e.x-t.x,this.y=e.y-t.y,this.z=e.z-t.z,this.w=e.w-t.w,this}multiply(e){return this.x*=e.x,this.y*=e.y,this.z*=e.z,this.w*=e.w,this}multiplyScalar(e){return this.x*=e,this.y*=e,this.z*=e,this.w*=e,this}applyMatrix4(e){let t=this.x,n=this.y,s=this.z,r=this.w,o=e.elements;return this.x=o[0]*t+o[4]*n+o[8]*s+o[12]*r,this.y=o[1]*t+o[5]*n+o[9]*s+o[13]*r,this.z=o[2]*t+o[6]*n+o[10]*s+o[14]*r,this.w=o[3]*t+o[7]*n+o[11]*s+o[15]*r,this}divide(e){return this.x/=e.x,this.y/=e.y,this.z/=e.z,this.w/=e.w,this}divideScalar(e){return this.multiplyScalar(1/e)}setAxisAngleFromQuaternion(e){this.w=2*Math.acos(e.w);let t=Math.sqrt(1-e.w*e.w);return t<1e-4?(this.x=1,this.y=0,this.z=0):(this.x=e.x/t,this.y=e.y/t,this.z=e.z/t),this}setAxisAngleFromRotationMatrix(e){let t,n,s,r,l=e.elements,c=l[0],h=l[4],u=l[8],d=l[1],f=l[5],p=l[9],y=l[2],m=l[6],g=l[10];if(Math.abs(h-d)<.01&&Math.abs(u-y)<.01&&Math.abs(p-m)<.01){if(Math.abs(h+d)<.1&&Math.abs(u+y)<.1&&Math.abs(p+m)<.1&&Math.abs(c+f+g-3)<.1)return this.set(1,0,0,0),this;t=Math.PI;let A=(c+1)/2,S=(f+1)/2,C=(g+1)/2,T=(h+d)/4,x=(u+y)/4,E=(p+m)/4;return A>S&&A>C?A<.01?(n=0,s=.707106781,r=.707106781):(n=Math.sqrt(A),s=T/n,r=x/n):S>C?S<.01?(n=.707106781,s=0,r=.707106781):(s=Math.sqrt(S),n=T/s,r=E/s):C<.01?(n=.707106781,s=.707106781,r=0):(r=Math.sqrt(C),n=x/r,s=E/r),this.set(n,s,r,t),this}let v=Math.sqrt((m-p)*(m-p)+(u-y)*(u-y)+(d-h)*(d-h));return Math.abs(v)<.001&&(v=1),this.x=(m-p)/v,this.y=(u-y)/v,this.z=(d-h)/v,this.w=Math.acos((c+f+g-1)/2),this}setFromMatrixPosition(e){let t=e.elements;return this.x=t[12],this.y=t[13],this.z=t[14],this.w=t[15],this}min(e){return this.x=Math.min(this.x,e.x),this.y=Math.min(this.y,e.y),this.z=Math.min(this.z,e.z),this.w=Math.min(this.w,e.w),this}max(e){return this.x=Math.max(this.x,e.x),this.y=Math.max(this.y,e.y),this.z=Math.max(this.z,e.z),this.w=Math.max(this.w,e.w),this}clamp(e,t){return this.x=ct(this.x,e.x,t.x),this.y=ct(this.y,e.y,t.y),this.z=ct(this.z,e.z,t.z),this.w=ct(this.w,e.w,t.w),this}clampScalar(e,t){return this.x=ct(this.x,e,t),this.y=ct(this.y,e,t),this.z=ct(this.z,e,t),this.w=ct(this.w,e,t),this}clampLength(e,t){let n=this.length();return this.divideScalar(n||1).multiplyScalar(ct(n,e,t))}floor(){return this.x=Math.floor(this.x),this.y=Math.floor(this.y),this.z=Math.floor(this.z),this.w=Math.floor(this.w),this}ceil(){return this.x=Math.ceil(this.x),this.y=Math.ceil(this.y),this.z=Math.ceil(this.z),this.w=Math.ceil(this.w),this}round(){return this.x=Math.round(this.x),this.y=Math.round(this.y),this.z=Math.round(this.z),this.w=Math.round(this.w),this}roundToZero(){return this.x=Math.trunc(this.x),this.y=Math.trunc(this.y),this.z=Math.trunc(this.z),this.w=Math.trunc(this.w),this}negate(){return this.x=-this.x,this.y=-this.y,this.z=-this.z,this.w=-this.w,this}dot(e){return this.x*e.x+this.y*e.y+this.z*e.z+this.w*e.w}lengthSq(){return this.x*this.x+this.y*this.y+this.z*this.z+this.w*this.w}length(){return Math.sqrt(this.x*this.x+this.y*this.y+this.z*this.z+this.w*this.w)}manhattanLength(){return Math.abs(this.x)+Math.abs(this.y)+Math.abs(this.z)+Math.abs(this.w)}normalize(){return this.divideScalar(this.length()||1)}setLength(e){return this.normalize().multiplyScalar(e)}lerp(e,t){return this.x+=(e.x-this.x)*t,this.y+=(e.y-this.y)*t,this.z+=(e.z-this.z)*t,this.w+=(e.w-this.w)*t,this}lerpVectors(e,t,n){return this.x=e.x+(t.x-e.x)*n,this.y=e.y+(t.y-e.y)*n,this.z=e.z+(t.z-e.z)*n,this.w=e.w+(t.w-e.w)*n,this}equals(e){return e.x===this.x&&e.y===this.y&&e.z===this.z&&e.w===this.w}fromArray(e,t=0){return this.x=e[t],this.y=e[t+1],this.z=e[t+2],this.w=e[t+3],this}toArray(e=[],t=0){return e[t]=this.x,e[t+1]=this.y,e[t+2]=this.z,e[t+3]=this.w,e}fromBufferAttribute(e,t){return this.x=e.getX(t),this.y=e.getY(t),this.z=e.getZ(t),this.w=e.getW(t),this}random(){return this.x=Math.random(),this.y=Math.random(),this.z=Math.random(),this.w=Math.random(),this}*[Symbol.iterator](){yield this.x,yield this.y,yield this.z,yield this.w}};Od.prototype.isVector4=!0;var Ot=Od,nc=class extends Ci{constructor(e=1,t=1,n={}){super(),n=Object.assign({generateMipmaps:!1,internalFormat:null,minFilter:Rn,depthBuffer:!0,stencilBuffer:!1,resolveColorBuffer:!0,resolveDepthBuffer:!0,resolveStencilBuffer:!0,storeMultisampledColorBuffer:!0,storeMultisampledDepthBuffer:!0,storeMultisampledStencilBuffer:!0,depthTexture:null,samples:0,count:1,depth:1,multiview:!1,useArrayDepthTexture:!1},n),this.isRenderTarget=!0,this.width=e,this.height=t,this.depth=n.depth,this.scissor=new Ot(0,0,e,t),this.scissorTest=!1,this.viewport=new Ot(0,0,e,t),this.textures=[];let s=n.count;for(let r=0;r<s;r++)this.textures[r]=new qn({width:e,height:t,depth:n.depth}),this.textures[r].isRenderTargetTexture=!0,this.textures[r].renderTarget=this;this._setTextureOptions(n),this.depthBuffer=n.depthBuffer,this.stencilBuffer=n.stencilBuffer,this.resolveColorBuffer=n.resolveColorBuffer,this.resolveDepthBuffer=n.resolveDepthBuffer,this.resolveStencilBuffer=n.resolveStencilBuffer,this.storeMultisampledColorBuffer=n.storeMultisampledColorBuffer,this.storeMultisampledDepthBuffer=n.storeMultisampledDepthBuffer,this.storeMultisampledStencilBuffer=n.storeMultisampledStencilBuffer,this._depthTexture=null,this.depthTexture=n.depthTexture,this.samples=n.samples,this.multiview=n.multiview,this.useArrayDepthTexture=n.useArrayDepthTexture}_setTextureOptions(e={}){let t={minFilter:Rn,generateMipmaps:!1,flipY:!1,internalFormat:null};e.mapping!==void 0&&(t.mapping=e.mapping),e.wrapS!==void 0&&(t.wrapS=e.wrapS),e.wrapT!==void 0&&(t.wrapT=e.wrapT),e.wrapR!==void 0&&(t.wrapR=e.wrapR),e.magFilter!==void 0&&(t.magFilter=e.magFilter),e.minFilter!==void 0&&(t.minFilter=e.minFilter),e.format!==void 0&&(t.format=e.format),e.type!==void 0&&(t.type=e.type),e.anisotropy!==void 0&&(t.anisotropy=e.anisotropy),e.colorSpace!==void 0&&(t.colorSpace=e.colorSpace),e.flipY!==void 0&&(t.flipY=e.flipY),e.generateMipmaps!==void 0&&(t.generateMipmaps=e.generateMipmaps),e.mipmapsAutoUpdate!==void 0&&(t.mipmapsAutoUpdate=e.mipmapsAutoUpdate),e.internalFormat!==void 0&&(t.internalFormat=e.internalFormat);for(let n=0;n<this.textures.length;n++)this.textures[n].setValues(t)}get texture(){return this.textures[0]}set texture(e){this.textures[0]=e}set depthTexture(e){this._depthTexture!==null&&this._depthTexture.renderTarget===this&&(this._depthTexture.renderTarget=null),e!==null&&e.renderTarget===null&&(e.renderTarget=this),this._depthTexture=e}get depthTexture(){return this._depthTexture}setSize(e,t,n=1){if(this.width!==e||this.height!==t||this.depth!==n){this.width=e,this.height=t,this.depth=n;for(let s=0,r=this.textures.length;s<r;s++)this.textures[s].image.width=e,this.textures[s].image.height=t,this.textures[s].image.depth=n,this.textures[s].isData3DTexture!==!0&&(this.textures[s].isArrayTexture=this.textures[s].image.depth>1);this.dispose()}this.viewport.set(0,0,e,t),this.scissor.set(0,0,e,t)}clone(){return new this.constructor().copy(this)}copy(e){this.width=e.width,this.height=e.height,this.depth=e.depth,this.scissor.copy(e.scissor),this.scissorTest=e.scissorTest,this.viewport.copy(e.viewport),this.textures.length=0;for(let t=0,n=e.textures.length;t<n;t++){this.textures[t]=e.textures[t].clone(),this.textures[t].isRenderTargetTexture=!0,this.textures[t].renderTarget=this;let s=Object.assign({},e.textures[t].image);this.textures[t].source=new lo(s)}if(this.depthBuffer=e.depthBuffer,this.stencilBuffer=e.stencilBuffer,this.resolveColorBuffer=e.resolveColorBuffer,this.resolveDepthBuffer=e.resolveDepthBuffer,this.resolveStencilBuffer=e.resolveStencilBuffer,this.storeMultisampledColorBuffer=e.storeMultisampledColorBuffer,this.storeMultisampledDepthBuffer=e.storeMultisampledDepthBuffer,this.storeMultisampledStencilBuffer=e.storeMultisampledStencilBuffer,e.depthTexture!==null)if(e.depthTexture.renderTarget===e){let t=e.depthTexture.clone();t.renderTarget=null,this.depthTexture=t}else this.depthTexture=e.depthTexture;else this.depthTexture=null;return this.samples=e.samples,this.multiview=e.multiview,this.useArrayDepthTexture=e.useArrayDepthTexture,this}dispose(){this.dispatchEvent({type:"dispose"})}},Pn=class extends nc{constructor(e=1,t=1,n={}){super(e,t,n),this.isWebGLRenderTarget=!0}},oa=class extends qn{constructor(e=null,t=1,n=1,s=1){super(null),this.isDataArrayTexture=!0,this.image={data:e,width:t,height:n,depth:s},this.magFilter=An,this.minFilter=An,this.wrapR=Wi,this.generateMipmaps=!1,this.flipY=!1,this.unpackAlignment=1,this.layerUpdates=new Set}copy(e){return super.copy(e),this.wrapR=e.wrapR,this}addLayerUpdate(e){this.layerUpdates.add(e)}clearLayerUpdates(){this.layerUpdates.clear()}};var ic=class extends qn{constructor(e=null,t=1,n=1,s=1){super(null),this.isData3DTexture=!0,this.image={data:e,width:t,height:n,depth:s},this.magFilter=An,this.minFilter=An,this.wrapR=Wi,this.generateMipmaps=!1,this.flipY=!1,this.unpackAlignment=1}copy(e){return super.copy(e),this.wrapR=e.wrapR,this}};var Cc=class Cc{constructor(e,t,n,s,r,o,a,l,c,h,u,d,f,p,y,m){this.elements=[1,0,0,0,0,1,0,0,0,0,1,0,0,0,0,1],e!==void 0&&this.set(e,t,n,s,r,o,a,l,c,h,u,d,f,p,y,m)}set(e,t,n,s,r,o,a,l,c,h,u,d,f,p,y,m){let g=this.elements;return g[0]=e,g[4]=t,g[8]=n,g[12]=s,g[1]=r,g[5]=o,g[9]=a,g[13]=l,g[2]=c,g[6]=h,g[10]=u,g[14]=d,g[3]=f,g[7]=p,g[11]=y,g[15]=m,this}identity(){return this.set(1,0,0,0,0,1,0,0,0,0,1,0,0,0,0,1),this}clone(){return new Cc().fromArray(this.elements)}copy(e){let t=this.elements,n=e.elements;return t[0]=n[0],t[1]=n[1],t[2]=n[2],t[3]=n[3],t[4]=n[4],t[5]=n[5],t[6]=n[6],t[7]=n[7],t[8]=n[8],t[9]=n[9],t[10]=n[10],t[11]=n[11],t[12]=n[12],t[13]=n[13],t[14]=n[14],t[15]=n[15],this}copyPosition(e){let t=this.elements,n=e.elements;return t[12]=n[12],t[13]=n[13],t[14]=n[14],this}setFromMatrix3(e){let t=e.elements;return this.set(t[0],t[3],t[6],0,t[1],t[4],t[7],0,t[2],t[5],t[8],0,0,0,0,1),this}extractBasis(e,t,n){return this.determinantAffine()===0?(e.set(1,0,0),t.set(0,1,0),n.set(0,0,1),this):(e.setFromMatrixColumn(this,0),t.setFromMatrixColumn(this,1),n.setFromMatrixColumn(this,2),this)}makeBasis(e,t,n){return this.set(e.x,t.x,n.x,0,e.y,t.y,n.y,0,e.z,t.z,n.z,0,0,0,0,1),this}extractRotation(e){if(e.determinantAffine()===0)return this.identity();let t=this.elements,n=e.elements,s=1/qr.setFromMatrixColumn(e,0).length(),r=1/qr.setFromMatrixColumn(e,1).length(),o=1/qr.setFromMatrixColumn(e,2).length();return t[0]=n[0]*s,t[1]=n[1]*s,t[2]=n[2]*s,t[3]=0,t[4]=n[4]*r,t[5]=n[5]*r,t[6]=n[6]*r,t[7]=0,t[8]=n[8]*o,t[9]=n[9]*o,t[10]=n[10]*o,t[11]=0,t[12]=0,t[13]=0,t[14]=0,t[15]=1,this}makeRotationFromEuler(e){let t=this.elements,n=e.x,s=e.y,r=e.z,o=Math.cos(n),a=Math.sin(n),l=Math.cos(s),c=Math.sin(s),h=Math.cos(r),u=Math.sin(r);if(e.order==="XYZ"){let d=o*h,f=o*u,p=a*h,y=a*u;t[0]=l*h,t[4]=-l*u,t[8]=c,t[1]=f+p*c,t[5]=d-y*c,t[9]=-a*l,t[2]=y-d*c,t[6]=p+f*c,t[10]=o*l}else if(e.order==="YXZ"){let d=l*h,f=l*u,p=c*h,y=c*u;t[0]=d+y*a,t[4]=p*a-f,t[8]=o*c,t[1]=o*u,t[5]=o*h,t[9]=-a,t[2]=f*a-p,t[6]=y+d*a,t[10]=o*l}else if(e.order==="ZXY"){let d=l*h,f=l*u,p=c*h,y=c*u;t[0]=d-y*a,t[4]=-o*u,t[8]=p+f*a,t[1]=f+p*a,t[5]=o*h,t[9]=y-d*a,t[2]=-o*c,t[6]=a,t[10]=o*l}else if(e.order==="ZYX"){let d=o*h,f=o*u,p=a*h,y=a*u;t[0]=l*h,t[4]=p*c-f,t[8]=d*c+y,t[1]=l*u,t[5]=y*c+d,t[9]=f*c-p,t[2]=-c,t[6]=a*l,t[10]=o*l}else if(e.order==="YZX"){let d=o*l,f=o*c,p=a*l,y=a*c;t[0]=l*h,t[4]=y-d*u,t[8]=p*u+f,t[1]=u,t[5]=o*h,t[9]=-a*h,t[2]=-c*h,t[6]=f*u+p,t[10]=d-y*u}else if(e.order==="XZY"){let d=o*l,f=o*c,p=a*l,y=a*c;t[0]=l*h,t[4]=-u,t[8]=c*h,t[1]=d*u+y,t[5]=o*h,t[9]=f*u-p,t[2]=p*u-f,t[6]=a*h,t[10]=y*u+d}return t[3]=0,t[7]=0,t[11]=0,t[12]=0,t[13]=0,t[14]=0,t[15]=1,this}makeRotationFromQuaternion(e){return this.compose(vv,e,yv)}lookAt(e,t,n){let s=this.elements;return ii.subVectors(e,t),ii.lengthSq()===0&&(ii.z=1),ii.normalize(),Rs.crossVectors(n,ii),Rs.lengthSq()===0&&(Math.abs(n.z)===1?ii.x+=1e-4:ii.z+=1e-4,ii.normalize(),Rs.crossVectors(n,ii)),Rs.normalize(),vl.crossVectors(ii,Rs),s[0]=Rs.x,s[4]=vl.x,s[8]=ii.x,s[1]=Rs.y,s[5]=vl.y,s[9]=ii.y,s[2]=Rs.z,s[6]=vl.z,s[10]=ii.z,this}multiply(e){return this.multiplyMatrices(this,e)}premultiply(e){return this.multiplyMatrices(e,this)}multiplyMatrices(e,t){let n=e.elements,s=t.elements,r=this.elements,o=n[0],a=n[4],l=n[8],c=n[12],h=n[1],u=n[5],d=n[9],f=n[13],p=n[2],y=n[6],m=n[10],g=n[14],v=n[3],A=n[7],S=n[11],C=n[15],T=s[0],x=s[4],E=s[8],B=s[12],N=s[1],D=s[5],G=s[9],V=s[13],I=s[2],W=s[6],$=s[10],z=s[14],ce=s[3],K=s[7],ee=s[11],re=s[15];return r[0]=o*T+a*N+l*I+c*ce,r[4]=o*x+a*D+l*W+c*K,r[8]=o*E+a*G+l*$+c*ee,r[12]=o*B+a*V+l*z+c*re,r[1]=h*T+u*N+d*I+f*ce,r[5]=h*x+u*D+d*W+f*K,r[9]=h*E+u*G+d*$+f*ee,r[13]=h*B+u*V+d*z+f*re,r[2]=p*T+y*N+m*I+g*ce,r[6]=p*x+y*D+m*W+g*K,r[10]=p*E+y*G+m*$+g*ee,r[14]=p*B+y*V+m*z+g*re,r[3]=v*T+A*N+S*I+C*ce,r[7]=v*x+A*D+S*W+C*K,r[11]=v*E+A*G+S*$+C*ee,r[15]=v*B+A*V+S*z+C*re,this}multiplyScalar(e){let t=this.elements;return t[0]*=e,t[4]*=e,t[8]*=e,t[12]*=e,t[1]*=e,t[5]*=e,t[9]*=e,t[13]*=e,t[2]*=e,t[6]*=e,t[10]*=e,t[14]*=e,t[3]*=e,t[7]*=e,t[11]*=e,t[15]*=e,this}determinant(){let e=this.elements,t=e[0],n=e[4],s=e[8],r=e[12],o=e[1],a=e[5],l=e[9],c=e[13],h=e[2],u=e[6],d=e[10],f=e[14],p=e[3],y=e[7],m=e[11],g=e[15],v=l*f-c*d,A=a*f-c*u,S=a*d-l*u,C=o*f-c*h,T=o*d-l*h,x=o*u-a*h;return t*(y*v-m*A+g*S)-n*(p*v-m*C+g*T)+s*(p*A-y*C+g*x)-r*(p*S-y*T+m*x)}determinantAffine(){let e=this.elements,t=e[0],n=e[4],s=e[8],r=e[1],o=e[5],a=e[9],l=e[2],c=e[6],h=e[10];return t*(o*h-a*c)-n*(r*h-a*l)+s*(r*c-o*l)}transpose(){let e=this.elements,t;return t=e[1],e[1]=e[4],e[4]=t,t=e[2],e[2]=e[8],e[8]=t,t=e[6],e[6]=e[9],e[9]=t,t=e[3],e[3]=e[12],e[12]=t,t=e[7],e[7]=e[13],e[13]=t,t=e[11],e[11]=e[14],e[14]=t,this}setPosition(e,t,n){let s=this.elements;return e.isVector3?(s[12]=e.x,s[13]=e.y,s[14]=e.z):(s[12]=e,s[13]=t,s[14]=n),this}invert(){let e=this.elements,t=e[0],n=e[1],s=e[2],r=e[3],o=e[4],a=e[5],l=e[6],c=e[7],h=e[8],u=e[9],d=e[10],f=e[11],p=e[12],y=e[13],m=e[14],g=e[15],v=t*a-n*o,A=t*l-s*o,S=t*c-r*o,C=n*l-s*a,T=n*c-r*a,x=s*c-r*l,E=h*y-u*p,B=h*m-d*p,N=h*g-f*p,D=u*m-d*y,G=u*g-f*y,V=d*g-f*m,I=v*V-A*G+S*D+C*N-T*B+x*E;if(I===0)return this.set(0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0);let W=1/I;return e[0]=(a*V-l*G+c*D)*W,e[1]=(s*G-n*V-r*D)*W,e[2]=(y*x-m*T+g*C)*W,e[3]=(d*T-u*x-f*C)*W,e[4]=(l*N-o*V-c*B)*W,e[5]=(t*V-s*N+r*B)*W,e[6]=(m*S-p*x-g*A)*W,e[7]=(h*x-d*S+f*A)*W,e[8]=(o*G-a*N+c*E)*W,e[9]=(n*N-t*G-r*E)*W,e[10]=(p*T-y*S+g*v)*W,e[11]=(u*S-h*T-f*v)*W,e[12]=(a*B-o*D-l*E)*W,e[13]=(t*D-n*B+s*E)*W,e[14]=(y*A-p*C-m*v)*W,e[15]=(h*C-u*A+d*v)*W,this}scale(e){let t=this.elements,n=e.x,s=e.y,r=e.z;return t[0]*=n,t[4]*=s,t[8]*=r,t[1]*=n,t[5]*=s,t[9]*=r,t[2]*=n,t[6]*=s,t[10]*=r,t[3]*=n,t[7]*=s,t[11]*=r,this}getMaxScaleOnAxis(){let e=this.elements,t=e[0]*e[0]+e[1]*e[1]+e[2]*e[2],n=e[4]*e[4]+e[5]*e[5]+e[6]*e[6],s=e[8]*e[8]+e[9]*e[9]+e[10]*e[10];return Math.sqrt(Math.max(t,n,s))}makeTranslation(e,t,n){return e.isVector3?this.set(1,0,0,e.x,0,1,0,e.y,0,0,1,e.z,0,0,0,1):this.set(1,0,0,e,0,1,0,t,0,0,1,n,0,0,0,1),this}makeRotationX(e){let t=Math.cos(e),n=Math.sin(e);return this.set(1,0,0,0,0,t,-n,0,0,n,t,0,0,0,0,1),this}makeRotationY(e){let t=Math.cos(e),n=Math.sin(e);return this.set(t,0,n,0,0,1,0,0,-n,0,t,0,0,0,0,1),this}makeRotationZ(e){let t=Math.cos(e),n=Math.sin(e);return this.set(t,-n,0,0,n,t,0,0,0,0,1,0,0,0,0,1),this}makeRotationAxis(e,t){let n=Math.cos(t),s=Math.sin(t),r=1-n,o=e.x,a=e.y,l=e.z,c=r*o,h=r*a;return this.set(c*o+n,c*a-s*l,c*l+s*a,0,c*a+s*l,h*a+n,h*l-s*o,0,c*l-s*a,h*l+s*o,r*l*l+n,0,0,0,0,1),this}makeScale(e,t,n){return this.set(e,0,0,0,0,t,0,0,0,0,n,0,0,0,0,1),this}makeShear(e,t,n,s,r,o){return this.set(1,n,r,0,e,1,o,0,t,s,1,0,0,0,0,1),this}compose(e,t,n){let s=this.elements,r=t._x,o=t._y,a=t._z,l=t._w,c=r+r,h=o+o,u=a+a,d=r*c,f=r*h,p=r*u,y=o*h,m=o*u,g=a*u,v=l*c,A=l*h,S=l*u,C=n.x,T=n.y,x=n.z;return s[0]=(1-(y+g))*C,s[1]=(f+S)*C,s[2]=(p-A)*C,s[3]=0,s[4]=(f-S)*T,s[5]=(1-(d+g))*T,s[6]=(m+v)*T,s[7]=0,s[8]=(p+A)*x,s[9]=(m-v)*x,s[10]=(1-(d+y))*x,s[11]=0,s[12]=e.x,s[13]=e.y,s[14]=e.z,s[15]=1,this}decompose(e,t,n){let s=this.elements;e.x=s[12],e.y=s[13],e.z=s[14];let r=this.determinantAffine();if(r===0)return n.set(1,1,1),t.identity(),this;let o=qr.set(s[0],s[1],s[2]).length(),a=qr.set(s[4],s[5],s[6]).length(),l=qr.set(s[8],s[9],s[10]).length();r<0&&(o=-o),Ti.copy(this);let c=1/o,h=1/a,u=1/l;return Ti.elements[0]*=c,Ti.elements[1]*=c,Ti.elements[2]*=c,Ti.elements[4]*=h,Ti.elements[5]*=h,Ti.elements[6]*=h,Ti.elements[8]*=u,Ti.elements[9]*=u,Ti.elements[10]*=u,t.setFromRotationMatrix(Ti),n.x=o,n.y=a,n.z=l,this}makePerspective(e,t,n,s,r,o,a=gi,l=!1){let c=this.elements,h=2*r/(t-e),u=2*r/(n-s),d=(t+e)/(t-e),f=(n+s)/(n-s),p,y;if(l)p=r/(o-r),y=o*r/(o-r);else if(a===gi)p=-(o+r)/(o-r),y=-2*o*r/(o-r);else if(a===sa)p=-o/(o-r),y=-o*r/(o-r);else throw new Error("THREE.Matrix4.makePerspective(): Invalid coordinate system: "+a);return c[0]=h,c[4]=0,c[8]=d,c[12]=0,c[1]=0,c[5]=u,c[9]=f,c[13]=0,c[2]=0,c[6]=0,c[10]=p,c[14]=y,c[3]=0,c[7]=0,c[11]=-1,c[15]=0,this}makeOrthographic(e,t,n,s,r,o,a=gi,l=!1){let c=this.elements,h=2/(t-e),u=2/(n-s),d=-(t+e)/(t-e),f=-(n+s)/(n-s),p,y;if(l)p=1/(o-r),y=o/(o-r);else if(a===gi)p=-2/(o-r),y=-(o+r)/(o-r);else if(a===sa)p=-1/(o-r),y=-r/(o-r);else throw new Error("THREE.Matrix4.makeOrthographic(): Invalid coordinate system: "+a);return c[0]=h,c[4]=0,c[8]=0,c[12]=d,c[1]=0,c[5]=u,c[9]=0,c[13]=f,c[2]=0,c[6]=0,c[10]=p,c[14]=y,c[3]=0,c[7]=0,c[11]=0,c[15]=1,this}equals(e){let t=this.elements,n=e.elements;for(let s=0;s<16;s++)if(t[s]!==n[s])return!1;return!0}fromArray(e,t=0){for(let n=0;n<16;n++)this.elements[n]=e[n+t];return this}toArray(e=[],t=0){let n=this.elements;return e[t]=n[0],e[t+1]=n[1],e[t+2]=n[2],e[t+3]=n[3],e[t+4]=n[4],e[t+5]=n[5],e[t+6]=n[6],e[t+7]=n[7],e[t+8]=n[8],e[t+9]=n[9],e[t+10]=n[10],e[t+11]=n[11],e[t+12]=n[12],e[t+13]=n[13],e[t+14]=n[14],e[t+15]=n[15],e}};Cc.prototype.isMatrix4=!0;var Ut=Cc,qr=new F,Ti=new Ut,vv=new F(0,0,0),yv=new F(1,1,1),Rs=new F,vl=new F,ii=new F,pm=new Ut,mm=new ai,Ns=class i{constructor(e=0,t=0,n=0,s=i.DEFAULT_ORDER){this.isEuler=!0,this._x=e,this._y=t,this._z=n,this._order=s}get x(){return this._x}set x(e){this._x=e,this._onChangeCallback()}get y(){return this._y}set y(e){this._y=e,this._onChangeCallback()}get z(){return this._z}set z(e){this._z=e,this._onChangeCallback()}get order(){return this._order}set order(e){this._order=e,this._onChangeCallback()}set(e,t,n,s=this._order){return this._x=e,this._y=t,this._z=n,this._order=s,this._onChangeCallback(),this}clone(){return new this.constructor(this._x,this._y,this._z,this._order)}copy(e){return this._x=e._x,this._y=e._y,this._z=e._z,this._order=e._order,this._onChangeCallback(),this}setFromRotationMatrix(e,t=this._order,n=!0){let s=e.elements,r=s[0],o=s[4],a=s[8],l=s[1],c=s[5],h=s[9],u=s[2],d=s[6],f=s[10];switch(t){case"XYZ":this._y=Math.asin(ct(a,-1,1)),Math.abs(a)<.9999999?(this._x=Math.atan2(-h,f),this._z=Math.atan2(-o,r)):(this._x=Math.atan2(d,c),this._z=0);break;case"YXZ":this._x=Math.asin(-ct(h,-1,1)),Math.abs(h)<.9999999?(this._y=Math.atan2(a,f),this._z=Math.atan2(l,c)):(this._y=Math.atan2(-u,r),this._z=0);break;case"ZXY":this._x=Math.asin(ct(d,-1,1)),Math.abs(d)<.9999999?(this._y=Math.atan2(-u,f),this._z=Math.atan2(-o,c)):(this._y=0,this._z=Math.atan2(l,r));break;case"ZYX":this._y=Math.asin(-ct(u,-1,1)),Math.abs(u)<.9999999?(this._x=Math.atan2(d,f),this._z=Math.atan2(l,r)):(this._x=0,this._z=Math.atan2(-o,c));break;case"YZX":this._z=Math.asin(ct(l,-1,1)),Math.abs(l)<.9999999?(this._x=Math.atan2(-h,c),this._y=Math.atan2(-u,r)):(this._x=0,this._y=Math.atan2(a,f));break;case"XZY":this._z=Math.asin(-ct(o,-1,1)),Math.abs(o)<.9999999?(this._x=Math.atan2(d,c),this._y=Math.atan2(a,r)):(this._x=Math.atan2(-h,f),this._y=0);break;default:$e("Euler: .setFromRotationMatrix() encountered an unknown order: "+t)}return this._order=t,n===!0&&this._onChangeCallback(),this}setFromQuaternion(e,t,n){return pm.makeRotationFromQuaternion(e),this.setFromRotationMatrix(pm,t,n)}setFromVector3(e,t=this._order){return this.set(e.x,e.y,e.z,t)}reorder(e){return mm.setFromEuler(this),this.setFromQuaternion(mm,e)}equals(e){return e._x===this._x&&e._y===this._y&&e._z===this._z&&e._order===this._order}fromArray(e){return this._x=e[0],this._y=e[1],this._z=e[2],e[3]!==void 0&&(this._order=e[3]),this._onChangeCallback(),this}toArray(e=[],t=0){return e[t]=this._x,e[t+1]=this._y,e[t+2]=this._z,e[t+3]=this._order,e}_onChange(e){return this._onChangeCallback=e,this}_onChangeCallback(){}*[Symbol.iterator](){yield this._x,yield this._y,yield this._z,yield this._order}};Ns.DEFAULT_ORDER="XYZ";var aa=class{constructor(){this.mask=1}set(e){this.mask=(1<<e|0)>>>0}enable(e){this.mask|=1<<e|0}enableAll(){this.mask=-1}toggle(e){this.mask^=1<<e|0}disable(e){this.mask&=~(1<<e|0)}disableAll(){this.mask=0}test(e){return(this.mask&e.mask)!==0}isEnabled(e){return(this.mask&(1<<e|0))!==0}},bv=0,gm=new F,Yr=new ai,rs=new Ut,yl=new F,qo=new F,Sv=new F,Mv=new ai,_m=new F(1,0,0),xm=new F(0,1,0),vm=new F(0,0,1),ym={type:"added"},wv={type:"removed"},$r={type:"childadded",child:null},Tu={type:"childremoved",child:null},Yn=class i extends Ci{constructor(){super(),this.isObject3D=!0,Object.defineProperty(this,"id",{value:bv++}),this.uuid=bo(),this.name="",this.type="Object3D",this.parent=null,this.children=[],this.up=i.DEFAULT_UP.clone();let e=new F,t=new Ns,n=new ai,s=new F(1,1,1);function r(){n.setFromEuler(t,!1)}function o(){t.setFromQuaternion(n,void 0,!1)}t._onChange(r),n._onChange(o),Object.defineProperties(this,{position:{configurable:!0,enumerable:!0,value:e},rotation:{configurable:!0,enumerable:!0,value:t},quaternion:{configurable:!0,enumerable:!0,value:n},scale:{configurable:!0,enumerable:!0,value:s},modelViewMatrix:{value:new Ut},normalMatrix:{value:new tt}}),this.matrix=new Ut,this.matrixWorld=new Ut,this.matrixAutoUpdate=i.DEFAULT_MATRIX_AUTO_UPDATE,this.matrixWorldAutoUpdate=i.DEFAULT_MATRIX_WORLD_AUTO_UPDATE,this.matrixWorldNeedsUpdate=!1,this.layers=new aa,this.visible=!0,this.castShadow=!1,this.receiveShadow=!1,this.frustumCulled=!0,this.renderOrder=0,this.animations=[],this.customDepthMaterial=void 0,this.customDistanceMaterial=void 0,this.static=!1,this.userData={},this.pivot=null}onBeforeShadow(){}onAfterShadow(){}onBeforeRender(){}onAfterRender(){}applyMatrix4(e){this.matrixAutoUpdate&&this.updateMatrix(),this.matrix.premultiply(e),this.matrix.decompose(this.position,this.quaternion,this.scale),this.pivot!==null&&this.position.copy(this.pivot).applyMatrix4(this.matrix).sub(this.pivot)}applyQuaternion(e){return this.quaternion.premultiply(e),this}setRotationFromAxisAngle(e,t){this.quaternion.setFromAxisAngle(e,t)}setRotationFromEuler(e){this.quaternion.setFromEuler(e,!0)}setRotationFromMatrix(e){this.quaternion.setFromRotationMatrix(e)}setRotationFromQuaternion(e){this.quaternion.copy(e)}rotateOnAxis(e,t){return Yr.setFromAxisAngle(e,t),this.quaternion.multiply(Yr),this}rotateOnWorldAxis(e,t){return Yr.setFromAxisAngle(e,t),this.quaternion.premultiply(Yr),this}rotateX(e){return this.rotateOnAxis(_m,e)}rotateY(e){return this.rotateOnAxis(xm,e)}rotateZ(e){return this.rotateOnAxis(vm,e)}translateOnAxis(e,t){return gm.copy(e).applyQuaternion(this.quaternion),this.position.add(gm.multiplyScalar(t)),this}translateX(e){return this.translateOnAxis(_m,e)}translateY(e){return this.translateOnAxis(xm,e)}translateZ(e){return this.translateOnAxis(vm,e)}localToWorld(e){return this.updateWorldMatrix(!0,!1),e.applyMatrix4(this.matrixWorld)}worldToLocal(e){return this.updateWorldMatrix(!0,!1),e.applyMatrix4(rs.copy(this.matrixWorld).invert())}lookAt(e,t,n){e.isVector3?yl.copy(e):yl.set(e,t,n);let s=this.parent;this.updateWorldMatrix(!0,!1),qo.setFromMatrixPosition(this.matrixWorld),this.isCamera||this.isLight?rs.lookAt(qo,yl,this.up):rs.lookAt(yl,qo,this.up),this.quaternion.setFromRotationMatrix(rs),s&&(rs.extractRotation(s.matrixWorld),Yr.setFromRotationMatrix(rs),this.quaternion.premultiply(Yr.invert()))}add(e){if(arguments.length>1){for(let t=0;t<arguments.length;t++)this.add(arguments[t]);return this}return e===this?(et("Object3D.add: object can't be added as a child of itself.",e),this):(e&&e.isObject3D?(e.removeFromParent(),e.parent=this,this.children.push(e),e.dispatchEvent(ym),$r.child=e,this.dispatchEvent($r),$r.child=null):et("Object3D.add: object not an instance of THREE.Object3D.",e),this)}remove(e){if(arguments.length>1){for(let n=0;n<arguments.length;n++)this.remove(arguments[n]);return this}let t=this.children.indexOf(e);return t!==-1&&(e.parent=null,this.children.splice(t,1),e.dispatchEvent(wv),Tu.child=e,this.dispatchEvent(Tu),Tu.child=null),this}removeFromParent(){let e=this.parent;return e!==null&&e.remove(this),this}clear(){return this.remove(...this.children)}attach(e){return this.updateWorldMatrix(!0,!1),rs.copy(this.matrixWorld).invert(),e.parent!==null&&(e.parent.updateWorldMatrix(!0,!1),rs.multiply(e.parent.matrixWorld)),e.applyMatrix4(rs),e.removeFromParent(),e.parent=this,this.children.push(e),e.updateWorldMatrix(!1,!0),e.dispatchEvent(ym),$r.child=e,this.dispatchEvent($r),$r.child=null,this}getObjectById(e){return this.getObjectByProperty("id",e)}getObjectByName(e){return this.getObjectByProperty("name",e)}getObjectByProperty(e,t){if(this[e]===t)return this;for(let n=0,s=this.children.length;n<s;n++){let o=this.children[n].getObjectByProperty(e,t);if(o!==void 0)return o}}getObjectsByProperty(e,t,n=[]){this[e]===t&&n.push(this);let s=this.children;for(let r=0,o=s.length;r<o;r++)s[r].getObjectsByProperty(e,t,n);return n}getWorldPosition(e){return this.updateWorldMatrix(!0,!1),e.setFromMatrixPosition(this.matrixWorld)}getWorldQuaternion(e){return this.updateWorldMatrix(!0,!1),this.matrixWorld.decompose(qo,e,Sv),e}getWorldScale(e){return this.updateWorldMatrix(!0,!1),this.matrixWorld.decompose(qo,Mv,e),e}getWorldDirection(e){this.updateWorldMatrix(!0,!1);let t=this.matrixWorld.elements;return e.set(t[8],t[9],t[10]).normalize()}raycast(){}intersectsFrustum(){return!0}traverse(e){e(this);let t=this.children;for(let n=0,s=t.length;n<s;n++)t[n].traverse(e)}traverseVisible(e){if(this.visible===!1)return;e(this);let t=this.children;for(let n=0,s=t.length;n<s;n++)t[n].traverseVisible(e)}traverseAncestors(e){let t=this.parent;t!==null&&(e(t),t.traverseAncestors(e))}updateMatrix(){this.matrix.compose(this.position,this.quaternion,this.scale);let e=this.pivot;if(e!==null){let t=e.x,n=e.y,s=e.z,r=this.matrix.elements;r[12]+=t-r[0]*t-r[4]*n-r[8]*s,r[13]+=n-r[1]*t-r[5]*n-r[9]*s,r[14]+=s-r[2]*t-r[6]*n-r[10]*s}this.matrixWorldNeedsUpdate=!0}updateMatrixWorld(e){this.matrixAutoUpdate&&this.updateMatrix(),(this.matrixWorldNeedsUpdate||e)&&(this.matrixWorldAutoUpdate===!0&&(this.parent===null?this.matrixWorld.copy(this.matrix):this.matrixWorld.multiplyMatrices(this.parent.matrixWorld,this.matrix)),this.matrixWorldNeedsUpdate=!1,e=!0);let t=this.children;for(let n=0,s=t.length;n<s;n++)t[n].updateMatrixWorld(e)}updateWorldMatrix(e,t,n=!1){let s=this.parent;if(e===!0&&s!==null&&s.updateWorldMatrix(!0,!1),this.matrixAutoUpdate&&this.updateMatrix(),(this.matrixWorldNeedsUpdate||n)&&(this.matrixWorldAutoUpdate===!0&&(this.parent===null?this.matrixWorld.copy(this.matrix):this.matrixWorld.multiplyMatrices(this.parent.matrixWorld,this.matrix)),this.matrixWorldNeedsUpdate=!1,n=!0),t===!0){let r=this.children;for(let o=0,a=r.length;o<a;o++)r[o].updateWorldMatrix(!1,!0,n)}}toJSON(e){let t=e===void 0||typeof e=="string",n={};t&&(e={geometries:{},materials:{},textures:{},images:{},shapes:{},skeletons:{},animations:{},nodes:{}},n.metadata={version:4.7,type:"Object",generator:"Object3D.toJSON"});let s={};s.uuid=this.uuid,s.type=this.type,s.name=this.name,s.castShadow=this.castShadow,s.receiveShadow=this.receiveShadow,s.visible=this.visible,s.frustumCulled=this.frustumCulled,s.renderOrder=this.renderOrder,s.static=this.static,s.matrixAutoUpdate=this.matrixAutoUpdate,Object.keys(this.userData).length>0&&(s.userData=this.userData),s.layers=this.layers.mask,s.matrix=this.matrix.toArray(),s.up=this.up.toArray(),this.pivot!==null&&(s.pivot=this.pivot.toArray()),this.morphTargetDictionary!==void 0&&(s.morphTargetDictionary=Object.assign({},this.morphTargetDictionary)),this.morphTargetInfluences!==void 0&&(s.morphTargetInfluences=this.morphTargetInfluences.slice()),this.isInstancedMesh&&(s.type="InstancedMesh",s.count=this.count,s.instanceMatrix=this.instanceMatrix.toJSON(),this.instanceColor!==null&&(s.instanceColor=this.instanceColor.toJSON())),this.isBatchedMesh&&(s.type="BatchedMesh",s.perObjectFrustumCulled=this.perObjectFrustumCulled,s.sortObjects=this.sortObjects,s.drawRanges=this._drawRanges,s.reservedRanges=this._reservedRanges,s.geometryInfo=this._geometryInfo.map(a=>({...a,boundingBox:a.boundingBox?a.boundingBox.toJSON():void 0,boundingSphere:a.boundingSphere?a.boundingSphere.toJSON():void 0})),s.instanceInfo=this._instanceInfo.map(a=>({...a})),s.availableInstanceIds=this._availableInstanceIds.slice(),s.availableGeometryIds=this._availableGeometryIds.slice(),s.nextIndexStart=this._nextIndexStart,s.nextVertexStart=this._nextVertexStart,s.geometryCount=this._geometryCount,s.maxInstanceCount=this._maxInstanceCount,s.maxVertexCount=this._maxVertexCount,s.maxIndexCount=this._maxIndexCount,s.geometryInitialized=this._geometryInitialized,s.matricesTexture=this._matricesTexture.toJSON(e),s.indirectTexture=this._indirectTexture.toJSON(e),this._colorsTexture!==null&&(s.colorsTexture=this._colorsTexture.toJSON(e)),this.boundingSphere!==null&&(s.boundingSphere=this.boundingSphere.toJSON()),this.boundingBox!==null&&(s.boundingBox=this.boundingBox.toJSON()));function r(a,l){return a[l.uuid]===void 0&&(a[l.uuid]=l.toJSON(e)),l.uuid}if(this.isScene)this.background&&(this.background.isColor?s.background=this.background.toJSON():this.background.isTexture&&(s.background=this.background.toJSON(e).uuid)),this.environment&&this.environment.isTexture&&this.environment.isRenderTargetTexture!==!0&&(s.environment=this.environment.toJSON(e).uuid);else if(this.isMesh||this.isLine||this.isPoints){s.geometry=r(e.geometries,this.geometry);let a=this.geometry.parameters;if(a!==void 0&&a.shapes!==void 0){let l=a.shapes;if(Array.isArray(l))for(let c=0,h=l.length;c<h;c++){let u=l[c];r(e.shapes,u)}else r(e.shapes,l)}}if(this.isSkinnedMesh&&(s.bindMode=this.bindMode,s.bindMatrix=this.bindMatrix.toArray(),this.skeleton!==void 0&&(r(e.skeletons,this.skeleton),s.skeleton=this.skeleton.uuid)),this.material!==void 0)if(Array.isArray(this.material)){let a=[];for(let l=0,c=this.material.length;l<c;l++)a.push(r(e.materials,this.material[l]));s.material=a}else s.material=r(e.materials,this.material);if(this.children.length>0){s.children=[];for(let a=0;a<this.children.length;a++)s.children.push(this.children[a].toJSON(e).object)}if(this.animations.length>0){s.animations=[];for(let a=0;a<this.animations.length;a++){let l=this.animations[a];s.animations.push(r(e.animations,l))}}if(t){let a=o(e.geometries),l=o(e.materials),c=o(e.textures),h=o(e.images),u=o(e.shapes),d=o(e.skeletons),f=o(e.animations),p=o(e.nodes);a.length>0&&(n.geometries=a),l.length>0&&(n.materials=l),c.length>0&&(n.textures=c),h.length>0&&(n.images=h),u.length>0&&(n.shapes=u),d.length>0&&(n.skeletons=d),f.length>0&&(n.animations=f),p.length>0&&(n.nodes=p)}return n.object=s,n;function o(a){let l=[];for(let c in a){let h=a[c];delete h.metadata,l.push(h)}return l}}clone(e){return new this.constructor().copy(this,e)}copy(e,t=!0){if(this.name=e.name,this.up.copy(e.up),this.position.copy(e.position),this.rotation.order=e.rotation.order,this.quaternion.copy(e.quaternion),this.scale.copy(e.scale),this.pivot=e.pivot!==null?e.pivot.clone():null,this.matrix.copy(e.matrix),this.matrixWorld.copy(e.matrixWorld),this.matrixAutoUpdate=e.matrixAutoUpdate,this.matrixWorldAutoUpdate=e.matrixWorldAutoUpdate,this.matrixWorldNeedsUpdate=e.matrixWorldNeedsUpdate,this.layers.mask=e.layers.mask,this.visible=e.visible,this.castShadow=e.castShadow,this.receiveShadow=e.receiveShadow,this.frustumCulled=e.frustumCulled,this.renderOrder=e.renderOrder,this.static=e.static,this.animations=e.animations.slice(),this.userData=JSON.parse(JSON.stringify(e.userData)),t===!0)for(let n=0;n<e.children.length;n++){let s=e.children[n];this.add(s.clone())}return this}dispose(){this.dispatchEvent({type:"dispose"})}};Yn.DEFAULT_UP=new F(0,1,0);Yn.DEFAULT_MATRIX_AUTO_UPDATE=!0;Yn.DEFAULT_MATRIX_WORLD_AUTO_UPDATE=!0;var ar=class extends Yn{constructor(){super(),this.isGroup=!0,this.type="Group"}},Ev={type:"move"},co=class{constructor(){this._targetRay=null,this._grip=null,this._hand=null}getHandSpace(){return this._hand===null&&(this._hand=new ar,this._hand.matrixAutoUpdate=!1,this._hand.visible=!1,this._hand.joints={},this._hand.inputState={pinching:!1}),this._hand}getTargetRaySpace(){return this._targetRay===null&&(this._targetRay=new ar,this._targetRay.matrixAutoUpdate=!1,this._targetRay.visible=!1,this._targetRay.hasLinearVelocity=!1,this._targetRay.linearVelocity=new F,this._targetRay.hasAngularVelocity=!1,this._targetRay.angularVelocity=new F),this._targetRay}getGripSpace(){return this._grip===null&&(this._grip=new ar,this._grip.matrixAutoUpdate=!1,this._grip.visible=!1,this._grip.hasLinearVelocity=!1,this._grip.linearVelocity=new F,this._grip.hasAngularVelocity=!1,this._grip.angularVelocity=new F,this._grip.eventsEnabled=!1),this._grip}dispatchEvent(e){return this._targetRay!==null&&this._targetRay.dispatchEvent(e),this._grip!==null&&this._grip.dispatchEvent(e),this._hand!==null&&this._hand.dispatchEvent(e),this}connect(e){if(e&&e.hand){let t=this._hand;if(t)for(let n of e.hand.values())this._getHandJoint(t,n)}return this.dispatchEvent({type:"connected",data:e}),this}disconnect(e){return this.dispatchEvent({type:"disconnected",data:e}),this._targetRay!==null&&(this._targetRay.visible=!1),this._grip!==null&&(this._grip.visible=!1),this._hand!==null&&(this._hand.visible=!1),this}update(e,t,n){let s=null,r=null,o=null,a=this._targetRay,l=this._grip,c=this._hand;if(e&&t.session.visibilityState!=="visible-blurred"){if(c&&e.hand){o=!0;for(let y of e.hand.values()){let m=t.getJointPose(y,n),g=this._getHandJoint(c,y);m!==null&&(g.matrix.fromArray(m.transform.matrix),g.matrix.decompose(g.position,g.quaternion,g.scale),g.matrixWorldNeedsUpdate=!0,g.jointRadius=m.radius),g.visible=m!==null}let h=c.joints["index-finger-tip"],u=c.joints["thumb-tip"],d=h.position.distanceTo(u.position),f=.02,p=.005;c.inputState.pinching&&d>f+p?(c.inputState.pinching=!1,this.dispatchEvent({type:"pinchend",handedness:e.handedness,target:this})):!c.inputState.pinching&&d<=f-p&&(c.inputState.pinching=!0,this.dispatchEvent({type:"pinchstart",handedness:e.handedness,target:this}))}else l!==null&&e.gripSpace&&(r=t.getPose(e.gripSpace,n),r!==null&&(l.matrix.fromArray(r.transform.matrix),l.matrix.decompose(l.position,l.quaternion,l.scale),l.matrixWorldNeedsUpdate=!0,r.linearVelocity?(l.hasLinearVelocity=!0,l.linearVelocity.copy(r.linearVelocity)):l.hasLinearVelocity=!1,r.angularVelocity?(l.hasAngularVelocity=!0,l.angularVelocity.copy(r.angularVelocity)):l.hasAngularVelocity=!1,l.eventsEnabled&&l.dispatchEvent({type:"gripUpdated",data:e,target:this})));a!==null&&(s=t.getPose(e.targetRaySpace,n),s===null&&r!==null&&(s=r),s!==null&&(a.matrix.fromArray(s.transform.matrix),a.matrix.decompose(a.position,a.quaternion,a.scale),a.matrixWorldNeedsUpdate=!0,s.linearVelocity?(a.hasLinearVelocity=!0,a.linearVelocity.copy(s.linearVelocity)):a.hasLinearVelocity=!1,s.angularVelocity?(a.hasAngularVelocity=!0,a.angularVelocity.copy(s.angularVelocity)):a.hasAngularVelocity=!1,this.dispatchEvent(Ev)))}return a!==null&&(a.visible=s!==null),l!==null&&(l.visible=r!==null),c!==null&&(c.visible=o!==null),this}_getHandJoint(e,t){if(e.joints[t.jointName]===void 0){let n=new ar;n.matrixAutoUpdate=!1,n.visible=!1,e.joints[t.jointName]=n,e.add(n)}return e.joints[t.jointName]}},Eg={aliceblue:15792383,antiquewhite:16444375,aqua:65535,aquamarine:8388564,azure:15794175,beige:16119260,bisque:16770244,black:0,blanchedalmond:16772045,blue:255,blueviolet:9055202,brown:10824234,burlywood:14596231,cadetblue:6266528,chartreuse:8388352,chocolate:13789470,coral:16744272,cornflowerblue:6591981,cornsilk:16775388,crimson:14423100,cyan:65535,darkblue:139,darkcyan:35723,darkgoldenrod:12092939,darkgray:11119017,darkgreen:25600,darkgrey:11119017,darkkhaki:12433259,darkmagenta:9109643,darkolivegreen:5597999,darkorange:16747520,darkorchid:10040012,darkred:9109504,darksalmon:15308410,darkseagreen:9419919,darkslateblue:4734347,darkslategray:3100495,darkslategrey:3100495,darkturquoise:52945,darkviolet:9699539,deeppink:16716947,deepskyblue:49151,dimgray:6908265,dimgrey:6908265,dodgerblue:2003199,firebrick:11674146,floralwhite:16775920,forestgreen:2263842,fuchsia:16711935,gainsboro:14474460,ghostwhite:16316671,gold:16766720,goldenrod:14329120,gray:8421504,green:32768,greenyellow:11403055,grey:8421504,honeydew:15794160,hotpink:16738740,indianred:13458524,indigo:4915330,ivory:16777200,khaki:15787660,lavender:15132410,lavenderblush:16773365,lawngreen:8190976,lemonchiffon:16775885,lightblue:11393254,lightcoral:15761536,lightcyan:14745599,lightgoldenrodyellow:16448210,lightgray:13882323,lightgreen:9498256,lightgrey:13882323,lightpink:16758465,lightsalmon:16752762,lightseagreen:2142890,lightskyblue:8900346,lightslategray:7833753,lightslategrey:7833753,lightsteelblue:11584734,lightyellow:16777184,lime:65280,limegreen:3329330,linen:16445670,magenta:16711935,maroon:8388608,mediumaquamarine:6737322,mediumblue:205,mediumorchid:12211667,mediumpurple:9662683,mediumseagreen:3978097,mediumslateblue:8087790,mediumspringgreen:64154,mediumturquoise:4772300,mediumvioletred:13047173,midnightblue:1644912,mintcream:16121850,mistyrose:16770273,moccasin:16770229,navajowhite:16768685,navy:128,oldlace:16643558,olive:8421376,olivedrab:7048739,orange:16753920,orangered:16729344,orchid:14315734,palegoldenrod:15657130,palegreen:10025880,paleturquoise:11529966,palevioletred:14381203,papayawhip:16773077,peachpuff:16767673,peru:13468991,pink:16761035,plum:14524637,powderblue:11591910,purple:8388736,rebeccapurple:6697881,red:16711680,rosybrown:12357519,royalblue:4286945,saddlebrown:9127187,salmon:16416882,sandybrown:16032864,seagreen:3050327,seashell:16774638,sienna:10506797,silver:12632256,skyblue:8900331,slateblue:6970061,slategray:7372944,slategrey:7372944,snow:16775930,springgreen:65407,steelblue:4620980,tan:13808780,teal:32896,thistle:14204888,tomato:16737095,turquoise:4251856,violet:15631086,wheat:16113331,white:16777215,whitesmoke:16119285,yellow:16776960,yellowgreen:10145074},Cs={h:0,s:0,l:0},bl={h:0,s:0,l:0};function Au(i,e,t){return t<0&&(t+=1),t>1&&(t-=1),t<1/6?i+(e-i)*6*t:t<1/2?e:t<2/3?i+(e-i)*6*(2/3-t):i}var gt=class{constructor(e,t,n){return this.isColor=!0,this.r=1,this.g=1,this.b=1,this.set(e,t,n)}set(e,t,n){if(t===void 0&&n===void 0){let s=e;s&&s.isColor?this.copy(s):typeof s=="number"?this.setHex(s):typeof s=="string"&&this.setStyle(s)}else this.setRGB(e,t,n);return this}setScalar(e){return this.r=e,this.g=e,this.b=e,this}setHex(e,t=ri){return e=Math.floor(e),this.r=(e>>16&255)/255,this.g=(e>>8&255)/255,this.b=(e&255)/255,pt.colorSpaceToWorking(this,t),this}setRGB(e,t,n,s=pt.workingColorSpace){return this.r=e,this.g=t,this.b=n,pt.colorSpaceToWorking(this,s),this}setHSL(e,t,n,s=pt.workingColorSpace){if(e=wd(e,1),t=ct(t,0,1),n=ct(n,0,1),t===0)this.r=this.g=this.b=n;else{let r=n<=.5?n*(1+t):n+t-n*t,o=2*n-r;this.r=Au(o,r,e+1/3),this.g=Au(o,r,e),this.b=Au(o,r,e-1/3)}return pt.colorSpaceToWorking(this,s),this}setStyle(e,t=ri){function n(r){r!==void 0&&parseFloat(r)<1&&$e("Color: Alpha component of "+e+" will be ignored.")}let s;if(s=/^(\w+)\(([^\)]*)\)/.exec(e)){let r,o=s[1],a=s[2];switch(o){case"rgb":case"rgba":if(r=/^\s*(\d+)\s*,\s*(\d+)\s*,\s*(\d+)\s*(?:,\s*(\d+(?:\.\d+)?|\.\d+)\s*)?$/.exec(a))return n(r[4]),this.setRGB(Math.min(255,parseInt(r[1],10))/255,Math.min(255,parseInt(r[2],10))/255,Math.min(255,parseInt(r[3],10))/255,t);if(r=/^\s*(\d+(?:\.\d+)?|\.\d+)\%\s*,\s*(\d+(?:\.\d+)?|\.\d+)\%\s*,\s*(\d+(?:\.\d+)?|\.\d+)\%\s*(?:,\s*(\d+(?:\.\d+)?|\.\d+)\s*)?$/.exec(a))return n(r[4]),this.setRGB(Math.min(100,parseFloat(r[1]))/100,Math.min(100,parseFloat(r[2]))/100,Math.min(100,parseFloat(r[3]))/100,t);break;case"hsl":case"hsla":if(r=/^\s*([+-]?(?:\d+(?:\.\d+)?|\.\d+))\s*,\s*(\d+(?:\.\d+)?|\.\d+)\%\s*,\s*(\d+(?:\.\d+)?|\.\d+)\%\s*(?:,\s*(\d+(?:\.\d+)?|\.\d+)\s*)?$/.exec(a))return n(r[4]),this.setHSL(parseFloat(r[1])/360,parseFloat(r[2])/100,parseFloat(r[3])/100,t);break;default:$e("Color: Unknown color model "+e)}}else if(s=/^\#([A-Fa-f\d]+)$/.exec(e)){let r=s[1],o=r.length;if(o===3)return this.setRGB(parseInt(r.charAt(0),16)/15,parseInt(r.charAt(1),16)/15,parseInt(r.charAt(2),16)/15,t);if(o===6)return this.setHex(parseInt(r,16),t);$e("Color: Invalid hex color "+e)}else if(e&&e.length>0)return this.setColorName(e,t);return this}setColorName(e,t=ri){let n=Eg[e.toLowerCase()];return n!==void 0?this.setHex(n,t):$e("Color: Unknown color "+e),this}clone(){return new this.constructor(this.r,this.g,this.b)}copy(e){return this.r=e.r,this.g=e.g,this.b=e.b,this}copySRGBToLinear(e){return this.r=hs(e.r),this.g=hs(e.g),this.b=hs(e.b),this}copyLinearToSRGB(e){return this.r=so(e.r),this.g=so(e.g),this.b=so(e.b),this}convertSRGBToLinear(){return this.copySRGBToLinear(this),this}convertLinearToSRGB(){return this.copyLinearToSRGB(this),this}getHex(e=ri){return pt.workingToColorSpace(Dn.copy(this),e),Math.round(ct(Dn.r*255,0,255))*65536+Math.round(ct(Dn.g*255,0,255))*256+Math.round(ct(Dn.b*255,0,255))}getHexString(e=ri){return("000000"+this.getHex(e).toString(16)).slice(-6)}getHSL(e,t=pt.workingColorSpace){pt.workingToColorSpace(Dn.copy(this),t);let n=Dn.r,s=Dn.g,r=Dn.b,o=Math.max(n,s,r),a=Math.min(n,s,r),l,c,h=(a+o)/2;if(a===o)l=0,c=0;else{let u=o-a;switch(c=h<=.5?u/(o+a):u/(2-o-a),o){case n:l=(s-r)/u+(s<r?6:0);break;case s:l=(r-n)/u+2;break;case r:l=(n-s)/u+4;break}l/=6}return e.h=l,e.s=c,e.l=h,e}getRGB(e,t=pt.workingColorSpace){return pt.workingToColorSpace(Dn.copy(this),t),e.r=Dn.r,e.g=Dn.g,e.b=Dn.b,e}getStyle(e=ri){pt.workingToColorSpace(Dn.copy(this),e);let t=Dn.r,n=Dn.g,s=Dn.b;return e!==ri?`color(${e} ${t.toFixed(3)} ${n.toFixed(3)} ${s.toFixed(3)})`:`rgb(${Math.round(t*255)},${Math.round(n*255)},${Math.round(s*255)})`}offsetHSL(e,t,n){return this.getHSL(Cs),this.setHSL(Cs.h+e,Cs.s+t,Cs.l+n)}add(e){return this.r+=e.r,this.g+=e.g,this.b+=e.b,this}addColors(e,t){return this.r=e.r+t.r,this.g=e.g+t.g,this.b=e.b+t.b,this}addScalar(e){return this.r+=e,this.g+=e,this.b+=e,this}sub(e){return this.r=Math.max(0,this.r-e.r),this.g=Math.max(0,this.g-e.g),this.b=Math.max(0,this.b-e.b),this}multiply(e){return this.r*=e.r,this.g*=e.g,this.b*=e.b,this}multiplyScalar(e){return this.r*=e,this.g*=e,this.b*=e,this}lerp(e,t){return this.r+=(e.r-this.r)*t,this.g+=(e.g-this.g)*t,this.b+=(e.b-this.b)*t,this}lerpColors(e,t,n){return this.r=e.r+(t.r-e.r)*n,this.g=e.g+(t.g-e.g)*n,this.b=e.b+(t.b-e.b)*n,this}lerpHSL(e,t){this.getHSL(Cs),e.getHSL(bl);let n=Qo(Cs.h,bl.h,t),s=Qo(Cs.s,bl.s,t),r=Qo(Cs.l,bl.l,t);return this.setHSL(n,s,r),this}setFromVector3(e){return this.r=e.x,this.g=e.y,this.b=e.z,this}applyMatrix3(e){let t=this.r,n=this.g,s=this.b,r=e.elements;return this.r=r[0]*t+r[3]*n+r[6]*s,this.g=r[1]*t+r[4]*n+r[7]*s,this.b=r[2]*t+r[5]*n+r[8]*s,this}equals(e){return e.r===this.r&&e.g===this.g&&e.b===this.b}fromArray(e,t=0){return this.r=e[t],this.g=e[t+1],this.b=e[t+2],this}toArray(e=[],t=0){return e[t]=this.r,e[t+1]=this.g,e[t+2]=this.b,e}fromBufferAttribute(e,t){return this.r=e.getX(t),this.g=e.getY(t),this.b=e.getZ(t),this}toJSON(){return this.getHex()}*[Symbol.iterator](){yield this.r,yield this.g,yield this.b}},Dn=new gt;gt.NAMES=Eg;var ds=class extends Yn{constructor(){super(),this.isScene=!0,this.type="Scene",this.background=null,this.environment=null,this.fog=null,this.backgroundBlurriness=0,this.backgroundIntensity=1,this.backgroundRotation=new Ns,this.environmentIntensity=1,this.environmentRotation=new Ns,this.overrideMaterial=null,typeof __THREE_DEVTOOLS__<"u"&&__THREE_DEVTOOLS__.dispatchEvent(new CustomEvent("observe",{detail:this}))}copy(e,t){return super.copy(e,t),this.background=e.background!==null?e.background.clone():null,this.environment=e.environment!==null?e.environment.clone():null,this.fog=e.fog!==null?e.fog.clone():null,this.backgroundBlurriness=e.backgroundBlurriness,this.backgroundIntensity=e.backgroundIntensity,this.backgroundRotation.copy(e.backgroundRotation),this.environmentIntensity=e.environmentIntensity,this.environmentRotation.copy(e.environmentRotation),this.overrideMaterial=e.overrideMaterial!==null?e.overrideMaterial.clone():null,this.matrixAutoUpdate=e.matrixAutoUpdate,this}toJSON(e){let t=super.toJSON(e);return this.fog!==null&&(t.object.fog=this.fog.toJSON()),t.object.backgroundBlurriness=this.backgroundBlurriness,t.object.backgroundIntensity=this.backgroundIntensity,t.object.backgroundRotation=this.backgroundRotation.toArray(),t.object.environmentIntensity=this.environmentIntensity,t.object.environmentRotation=this.environmentRotation.toArray(),t}},Ai=new F,os=new F,Ru=new F,as=new F,Zr=new F,Kr=new F,bm=new F,Cu=new F,Pu=new F,Iu=new F,Lu=new Ot,Du=new Ot,Nu=new Ot,Ds=class i{constructor(e=new F,t=new F,n=new F){this.a=e,this.b=t,this.c=n}static getNormal(e,t,n,s){s.subVectors(n,t),Ai.subVectors(e,t),s.cross(Ai);let r=s.lengthSq();return r>0?s.multiplyScalar(1/Math.sqrt(r)):s.set(0,0,0)}static getBarycoord(e,t,n,s,r){Ai.subVectors(s,t),os.subVectors(n,t),Ru.subVectors(e,t);let o=Ai.dot(Ai),a=Ai.dot(os),l=Ai.dot(Ru),c=os.dot(os),h=os.dot(Ru),u=o*c-a*a;if(u===0)return r.set(0,0,0),null;let d=1/u,f=(c*l-a*h)*d,p=(o*h-a*l)*d;return r.set(1-f-p,p,f)}static containsPoint(e,t,n,s){return this.getBarycoord(e,t,n,s,as)===null?!1:as.x>=0&&as.y>=0&&as.x+as.y<=1}static getInterpolation(e,t,n,s,r,o,a,l){return this.getBarycoord(e,t,n,s,as)===null?(l.x=0,l.y=0,"z"in l&&(l.z=0),"w"in l&&(l.w=0),null):(l.setScalar(0),l.addScaledVector(r,as.x),l.addScaledVector(o,as.y),l.addScaledVector(a,as.z),l)}static getInterpolatedAttribute(e,t,n,s,r,o){return Lu.setScalar(0),Du.setScalar(0),Nu.setScalar(0),Lu.fromBufferAttribute(e,t),Du.fromBufferAttribute(e,n),Nu.fromBufferAttribute(e,s),o.setScalar(0),o.addScaledVector(Lu,r.x),o.addScaledVector(Du,r.y),o.addScaledVector(Nu,r.z),o}static isFrontFacing(e,t,n,s){return Ai.subVectors(n,t),os.subVectors(e,t),Ai.cross(os).dot(s)<0}set(e,t,n){return this.a.copy(e),this.b.copy(t),this.c.copy(n),this}setFromPointsAndIndices(e,t,n,s){return this.a.copy(e[t]),this.b.copy(e[n]),this.c.copy(e[s]),this}setFromAttributeAndIndices(e,t,n,s){return this.a.fromBufferAttribute(e,t),this.b.fromBufferAttribute(e,n),this.c.fromBufferAttribute(e,s),this}clone(){return new this.constructor().copy(this)}copy(e){return this.a.copy(e.a),this.b.copy(e.b),this.c.copy(e.c),this}getArea(){return Ai.subVectors(this.c,this.b),os.subVectors(this.a,this.b),Ai.cross(os).length()*.5}getMidpoint(e){return e.addVectors(this.a,this.b).add(this.c).multiplyScalar(1/3)}getNormal(e){return i.getNormal(this.a,this.b,this.c,e)}getPlane(e){return e.setFromCoplanarPoints(this.a,this.b,this.c)}getBarycoord(e,t){return i.getBarycoord(e,this.a,this.b,this.c,t)}getInterpolation(e,t,n,s,r){return i.getInterpolation(e,this.a,this.b,this.c,t,n,s,r)}containsPoint(e){return i.containsPoint(e,this.a,this.b,this.c)}isFrontFacing(e){return i.isFrontFacing(this.a,this.b,this.c,e)}intersectsBox(e){return e.intersectsTriangle(this)}closestPointToPoint(e,t){let n=this.a,s=this.b,r=this.c,o,a;Zr.subVectors(s,n),Kr.subVectors(r,n),Cu.subVectors(e,n);let l=Zr.dot(Cu),c=Kr.dot(Cu);if(l<=0&&c<=0)return t.copy(n);Pu.subVectors(e,s);let h=Zr.dot(Pu),u=Kr.dot(Pu);if(h>=0&&u<=h)return t.copy(s);let d=l*u-h*c;if(d<=0&&l>=0&&h<=0&&l-h>0)return o=l/(l-h),t.copy(n).addScaledVector(Zr,o);Iu.subVectors(e,r);let f=Zr.dot(Iu),p=Kr.dot(Iu);if(p>=0&&f<=p)return t.copy(r);let y=f*c-l*p;if(y<=0&&c>=0&&p<=0)return a=c/(c-p),t.copy(n).addScaledVector(Kr,a);let m=h*p-f*u;if(m<=0&&u-h>=0&&f-p>=0)return bm.subVectors(r,s),a=(u-h)/(u-h+(f-p)),t.copy(s).addScaledVector(bm,a);let g=1/(m+y+d);return o=y*g,a=d*g,t.copy(n).addScaledVector(Zr,o).addScaledVector(Kr,a)}equals(e){return e.a.equals(this.a)&&e.b.equals(this.b)&&e.c.equals(this.c)}},Gn=class{constructor(e=new F(1/0,1/0,1/0),t=new F(-1/0,-1/0,-1/0)){this.isBox3=!0,this.min=e,this.max=t}set(e,t){return this.min.copy(e),this.max.copy(t),this}setFromArray(e){this.makeEmpty();for(let t=0,n=e.length;t<n;t+=3)this.expandByPoint(Ri.fromArray(e,t));return this}setFromBufferAttribute(e){this.makeEmpty();for(let t=0,n=e.count;t<n;t++)this.expandByPoint(Ri.fromBufferAttribute(e,t));return this}setFromPoints(e){this.makeEmpty();for(let t=0,n=e.length;t<n;t++)this.expandByPoint(e[t]);return this}setFromCenterAndSize(e,t){let n=Ri.copy(t).multiplyScalar(.5);return this.min.copy(e).sub(n),this.max.copy(e).add(n),this}setFromObject(e,t=!1){return this.makeEmpty(),this.expandByObject(e,t)}clone(){return new this.constructor().copy(this)}copy(e){return this.min.copy(e.min),this.max.copy(e.max),this}makeEmpty(){return this.min.x=this.min.y=this.min.z=1/0,this.max.x=this.max.y=this.max.z=-1/0,this}isEmpty(){return this.max.x<this.min.x||this.max.y<this.min.y||this.max.z<this.min.z}getCenter(e){return this.isEmpty()?e.set(0,0,0):e.addVectors(this.min,this.max).multiplyScalar(.5)}getSize(e){return this.isEmpty()?e.set(0,0,0):e.subVectors(this.max,this.min)}expandByPoint(e){return this.min.min(e),this.max.max(e),this}expandByVector(e){return this.min.sub(e),this.max.add(e),this}expandByScalar(e){return this.min.addScalar(-e),this.max.addScalar(e),this}expandByObject(e,t=!1){e.updateWorldMatrix(!1,!1);let n=e.geometry;if(n!==void 0){let r=n.getAttribute("position");if(t===!0&&r!==void 0&&e.isInstancedMesh!==!0&&e.isBatchedMesh!==!0)for(let o=0,a=r.count;o<a;o++)e.isMesh===!0?e.getVertexPosition(o,Ri):Ri.fromBufferAttribute(r,o),Ri.applyMatrix4(e.matrixWorld),this.expandByPoint(Ri);else e.boundingBox!==void 0?(e.boundingBox===null&&e.computeBoundingBox(),Sl.copy(e.boundingBox)):(n.boundingBox===null&&n.computeBoundingBox(),Sl.copy(n.boundingBox)),Sl.applyMatrix4(e.matrixWorld),this.union(Sl)}let s=e.children;for(let r=0,o=s.length;r<o;r++)this.expandByObject(s[r],t);return this}containsPoint(e){return e.x>=this.min.x&&e.x<=this.max.x&&e.y>=this.min.y&&e.y<=this.max.y&&e.z>=this.min.z&&e.z<=this.max.z}containsBox(e){return this.min.x<=e.min.x&&e.max.x<=this.max.x&&this.min.y<=e.min.y&&e.max.y<=this.max.y&&this.min.z<=e.min.z&&e.max.z<=this.max.z}getParameter(e,t){return t.set((e.x-this.min.x)/(this.max.x-this.min.x),(e.y-this.min.y)/(this.max.y-this.min.y),(e.z-this.min.z)/(this.max.z-this.min.z))}intersectsBox(e){return e.max.x>=this.min.x&&e.min.x<=this.max.x&&e.max.y>=this.min.y&&e.min.y<=this.max.y&&e.max.z>=this.min.z&&e.min.z<=this.max.z}intersectsSphere(e){return this.clampPoint(e.center,Ri),Ri.distanceToSquared(e.center)<=e.radius*e.radius}intersectsPlane(e){let t,n;return e.normal.x>0?(t=e.normal.x*this.min.x,n=e.normal.x*this.max.x):(t=e.normal.x*this.max.x,n=e.normal.x*this.min.x),e.normal.y>0?(t+=e.normal.y*this.min.y,n+=e.normal.y*this.max.y):(t+=e.normal.y*this.max.y,n+=e.normal.y*this.min.y),e.normal.z>0?(t+=e.normal.z*this.min.z,n+=e.normal.z*this.max.z):(t+=e.normal.z*this.max.z,n+=e.normal.z*this.min.z),t<=-e.constant&&n>=-e.constant}intersectsTriangle(e){if(this.isEmpty())return!1;this.getCenter(Yo),Ml.subVectors(this.max,Yo),Jr.subVectors(e.a,Yo),jr.subVectors(e.b,Yo),Qr.subVectors(e.c,Yo),Ps.subVectors(jr,Jr),Is.subVectors(Qr,jr),ir.subVectors(Jr,Qr);let t=[0,-Ps.z,Ps.y,0,-Is.z,Is.y,0,-ir.z,ir.y,Ps.z,0,-Ps.x,Is.z,0,-Is.x,ir.z,0,-ir.x,-Ps.y,Ps.x,0,-Is.y,Is.x,0,-ir.y,ir.x,0];return!Uu(t,Jr,jr,Qr,Ml)||(t=[1,0,0,0,1,0,0,0,1],!Uu(t,Jr,jr,Qr,Ml))?!1:(wl.crossVectors(Ps,Is),t=[wl.x,wl.y,wl.z],Uu(t,Jr,jr,Qr,Ml))}clampPoint(e,t){return t.copy(e).clamp(this.min,this.max)}distanceToPoint(e){return this.clampPoint(e,Ri).distanceTo(e)}getBoundingSphere(e){return this.isEmpty()?e.makeEmpty():(this.getCenter(e.center),e.radius=this.getSize(Ri).length()*.5),e}intersect(e){return this.min.max(e.min),this.max.min(e.max),this.isEmpty()&&this.makeEmpty(),this}union(e){return this.min.min(e.min),this.max.max(e.max),this}applyMatrix4(e){return this.isEmpty()?this:(ls[0].set(this.min.x,this.min.y,this.min.z).applyMatrix4(e),ls[1].set(this.min.x,this.min.y,this.max.z).applyMatrix4(e),ls[2].set(this.min.x,this.max.y,this.min.z).applyMatrix4(e),ls[3].set(this.min.x,this.max.y,this.max.z).applyMatrix4(e),ls[4].set(this.max.x,this.min.y,this.min.z).applyMatrix4(e),ls[5].set(this.max.x,this.min.y,this.max.z).applyMatrix4(e),ls[6].set(this.max.x,this.max.y,this.min.z).applyMatrix4(e),ls[7].set(this.max.x,this.max.y,this.max.z).applyMatrix4(e),this.setFromPoints(ls),this)}translate(e){return this.min.add(e),this.max.add(e),this}equals(e){return e.min.equals(this.min)&&e.max.equals(this.max)}toJSON(){return{min:this.min.toArray(),max:this.max.toArray()}}fromJSON(e){return this.min.fromArray(e.min),this.max.fromArray(e.max),this}},ls=[new F,new F,new F,new F,new F,new F,new F,new F],Ri=new F,Sl=new Gn,Jr=new F,jr=new F,Qr=new F,Ps=new F,Is=new F,ir=new F,Yo=new F,Ml=new F,wl=new F,sr=new F;function Uu(i,e,t,n,s){for(let r=0,o=i.length-3;r<=o;r+=3){sr.fromArray(i,r);let a=s.x*Math.abs(sr.x)+s.y*Math.abs(sr.y)+s.z*Math.abs(sr.z),l=e.dot(sr),c=t.dot(sr),h=n.dot(sr);if(Math.max(-Math.max(l,c,h),Math.min(l,c,h))>a)return!1}return!0}var hn=new F,El=new ze,Tv=0,qt=class extends Ci{constructor(e,t,n=!1){if(super(),Array.isArray(e))throw new TypeError("THREE.BufferAttribute: array should be a Typed Array.");this.isBufferAttribute=!0,Object.defineProperty(this,"id",{value:Tv++}),this.name="",this.array=e,this.itemSize=t,this.count=e!==void 0?e.length/t:0,this.normalized=n,this.usage=xg,this.updateRanges=[],this.gpuType=Ii,this.version=0,this._normalizationScale=e!==void 0?Td(e):void 0}onUploadCallback(){}set needsUpdate(e){e===!0&&this.version++}setUsage(e){return this.usage=e,this}addUpdateRange(e,t){this.updateRanges.push({start:e,count:t})}clearUpdateRanges(){this.updateRanges.length=0}copy(e){return this.name=e.name,this.array=new e.array.constructor(e.array),this.itemSize=e.itemSize,this.count=e.count,this.normalized=e.normalized,this.usage=e.usage,this.gpuType=e.gpuType,this._normalizationScale=e._normalizationScale,this}copyAt(e,t,n){e*=this.itemSize,n*=t.itemSize;for(let s=0,r=this.itemSize;s<r;s++)this.array[e+s]=t.array[n+s];return this}copyArray(e){return this.array.set(e),this}applyMatrix3(e){if(this.itemSize===2)for(let t=0,n=this.count;t<n;t++)El.fromBufferAttribute(this,t),El.applyMatrix3(e),this.setXY(t,El.x,El.y);else if(this.itemSize===3)for(let t=0,n=this.count;t<n;t++)hn.fromBufferAttribute(this,t),hn.applyMatrix3(e),this.setXYZ(t,hn.x,hn.y,hn.z);return this}applyMatrix4(e){for(let t=0,n=this.count;t<n;t++)hn.fromBufferAttribute(this,t),hn.applyMatrix4(e),this.setXYZ(t,hn.x,hn.y,hn.z);return this}applyNormalMatrix(e){for(let t=0,n=this.count;t<n;t++)hn.fromBufferAttribute(this,t),hn.applyNormalMatrix(e),this.setXYZ(t,hn.x,hn.y,hn.z);return this}transformDirection(e){for(let t=0,n=this.count;t<n;t++)hn.fromBufferAttribute(this,t),hn.transformDirection(e),this.setXYZ(t,hn.x,hn.y,hn.z);return this}set(e,t=0){return this.array.set(e,t),this}getComponent(e,t){let n=this.array[e*this.itemSize+t];return this.normalized&&(n=this._denormalize(n)),n}setComponent(e,t,n){return this.normalized&&(n=this._normalize(n)),this.array[e*this.itemSize+t]=n,this}getX(e){let t=this.array[e*this.itemSize];return this.normalized&&(t=this._denormalize(t)),t}setX(e,t){return this.normalized&&(t=this._normalize(t)),this.array[e*this.itemSize]=t,this}getY(e){let t=this.array[e*this.itemSize+1];return this.normalized&&(t=this._denormalize(t)),t}setY(e,t){return this.normalized&&(t=this._normalize(t)),this.array[e*this.itemSize+1]=t,this}getZ(e){let t=this.array[e*this.itemSize+2];return this.normalized&&(t=this._denormalize(t)),t}setZ(e,t){return this.normalized&&(t=this._normalize(t)),this.array[e*this.itemSize+2]=t,this}getW(e){let t=this.array[e*this.itemSize+3];return this.normalized&&(t=this._denormalize(t)),t}setW(e,t){return this.normalized&&(t=this._normalize(t)),this.array[e*this.itemSize+3]=t,this}setXY(e,t,n){return e*=this.itemSize,this.normalized&&(t=this._normalize(t),n=this._normalize(n)),this.array[e+0]=t,this.array[e+1]=n,this}setXYZ(e,t,n,s){return e*=this.itemSize,this.normalized&&(t=this._normalize(t),n=this._normalize(n),s=this._normalize(s)),this.array[e+0]=t,this.array[e+1]=n,this.array[e+2]=s,this}setXYZW(e,t,n,s,r){return e*=this.itemSize,this.normalized&&(t=this._normalize(t),n=this._normalize(n),s=this._normalize(s),r=this._normalize(r)),this.array[e+0]=t,this.array[e+1]=n,this.array[e+2]=s,this.array[e+3]=r,this}onUpload(e){return this.onUploadCallback=e,this}clone(){return new this.constructor(this.array,this.itemSize).copy(this)}toJSON(){let e={itemSize:this.itemSize,type:this.array.constructor.name,array:Array.from(this.array),normalized:this.normalized};return e.name=this.name,e.usage=this.usage,e.gpuType=this.gpuType,e}dispose(){this.dispatchEvent({type:"dispose"})}_denormalize(e){let t=this._normalizationScale;return t!==void 0?Math.max(e/t,-1):Mg(e,this.array)}_normalize(e){let t=this._normalizationScale;return t!==void 0?Math.round(e*t):wg(e,this.array)}};var la=class extends qt{constructor(e,t,n){super(new Uint16Array(e),t,n)}};var ca=class extends qt{constructor(e,t,n){super(new Uint32Array(e),t,n)}};var un=class extends qt{constructor(e,t,n){super(new Float32Array(e),t,n)}},Av=new Gn,$o=new F,Ou=new F,Xi=class{constructor(e=new F,t=-1){this.isSphere=!0,this.center=e,this.radius=t}set(e,t){return this.center.copy(e),this.radius=t,this}setFromPoints(e,t){let n=this.center;t!==void 0?n.copy(t):Av.setFromPoints(e).getCenter(n);let s=0;for(let r=0,o=e.length;r<o;r++)s=Math.max(s,n.distanceToSquared(e[r]));return this.radius=Math.sqrt(s),this}copy(e){return this.center.copy(e.center),this.radius=e.radius,this}isEmpty(){return this.radius<0}makeEmpty(){return this.center.set(0,0,0),this.radius=-1,this}containsPoint(e){return e.distanceToSquared(this.center)<=this.radius*this.radius}distanceToPoint(e){return e.distanceTo(this.center)-this.radius}intersectsSphere(e){let t=this.radius+e.radius;return e.center.distanceToSquared(this.center)<=t*t}intersectsBox(e){return e.intersectsSphere(this)}intersectsPlane(e){return Math.abs(e.distanceToPoint(this.center))<=this.radius}clampPoint(e,t){let n=this.center.distanceToSquared(e);return t.copy(e),n>this.radius*this.radius&&(t.sub(this.center).normalize(),t.multiplyScalar(this.radius).add(this.center)),t}getBoundingBox(e){return this.isEmpty()?(e.makeEmpty(),e):(e.set(this.center,this.center),e.expandByScalar(this.radius),e)}applyMatrix4(e){return this.center.applyMatrix4(e),this.radius=this.radius*e.getMaxScaleOnAxis(),this}translate(e){return this.center.add(e),this}expandByPoint(e){if(this.isEmpty())return this.center.copy(e),this.radius=0,this;$o.subVectors(e,this.center);let t=$o.lengthSq();if(t>this.radius*this.radius){let n=Math.sqrt(t),s=(n-this.radius)*.5;this.center.addScaledVector($o,s/n),this.radius+=s}return this}union(e){return e.isEmpty()?this:this.isEmpty()?(this.copy(e),this):(this.center.equals(e.center)===!0?this.radius=Math.max(this.radius,e.radius):(Ou.subVectors(e.center,this.center).setLength(e.radius),this.expandByPoint($o.copy(e.center).add(Ou)),this.expandByPoint($o.copy(e.center).sub(Ou))),this)}equals(e){return e.center.equals(this.center)&&e.radius===this.radius}clone(){return new this.constructor().copy(this)}toJSON(){return{radius:this.radius,center:this.center.toArray()}}fromJSON(e){return this.radius=e.radius,this.center.fromArray(e.center),this}},Rv=0,mi=new Ut,Fu=new Yn,eo=new F,si=new Gn,Zo=new Gn,Tn=new F,tn=class i extends Ci{constructor(){super(),this.isBufferGeometry=!0,Object.defineProperty(this,"id",{value:Rv++}),this.uuid=bo(),this.name="",this.type="BufferGeometry",this.index=null,this.indirect=null,this.indirectOffset=0,this.attributes={},this.morphAttributes={},this.morphTargetsRelative=!1,this.groups=[],this.boundingBox=null,this.boundingSphere=null,this.drawRange={start:0,count:1/0},this.userData={},this._transformed=!1}getIndex(){return this.index}setIndex(e){return Array.isArray(e)?this.index=new(Qx(e)?ca:la)(e,1):this.index=e,this}setIndirect(e,t=0){return this.indirect=e,this.indirectOffset=t,this}getIndirect(){return this.indirect}getAttribute(e){return this.attributes[e]}setAttribute(e,t){return this.attributes[e]=t,this}deleteAttribute(e){return delete this.attributes[e],this}hasAttribute(e){return this.attributes[e]!==void 0}addGroup(e,t,n=0){this.groups.push({start:e,count:t,materialIndex:n})}clearGroups(){this.groups=[]}setDrawRange(e,t){this.drawRange.start=e,this.drawRange.count=t}applyMatrix4(e){let t=this.attributes.position;t!==void 0&&(t.applyMatrix4(e),t.needsUpdate=!0);let n=this.attributes.normal;if(n!==void 0){let r=new tt().getNormalMatrix(e);n.applyNormalMatrix(r),n.needsUpdate=!0}let s=this.attributes.tangent;return s!==void 0&&(s.transformDirection(e),s.needsUpdate=!0),this.boundingBox!==null&&this.computeBoundingBox(),this.boundingSphere!==null&&this.computeBoundingSphere(),this._transformed=!0,this}applyQuaternion(e){return mi.makeRotationFromQuaternion(e),this.applyMatrix4(mi),this}rotateX(e){return mi.makeRotationX(e),this.applyMatrix4(mi),this}rotateY(e){return mi.makeRotationY(e),this.applyMatrix4(mi),this}rotateZ(e){return mi.makeRotationZ(e),this.applyMatrix4(mi),this}translate(e,t,n){return mi.makeTranslation(e,t,n),this.applyMatrix4(mi),this}scale(e,t,n){return mi.makeScale(e,t,n),this.applyMatrix4(mi),this}lookAt(e){return Fu.lookAt(e),Fu.updateMatrix(),this.applyMatrix4(Fu.matrix),this}center(){return this.computeBoundingBox(),this.boundingBox.getCenter(eo).negate(),this.translate(eo.x,eo.y,eo.z),this}setFromPoints(e){let t=this.getAttribute("position");if(t===void 0){let n=[];for(let s=0,r=e.length;s<r;s++){let o=e[s];n.push(o.x,o.y,o.z||0)}this.setAttribute("position",new un(n,3))}else{let n=Math.min(e.length,t.count);for(let s=0;s<n;s++){let r=e[s];t.setXYZ(s,r.x,r.y,r.z||0)}e.length>t.count&&$e("BufferGeometry: Buffer size too small for points data. Use .dispose() and create a new geometry."),t.needsUpdate=!0}return this}computeBoundingBox(){this.boundingBox===null&&(this.boundingBox=new Gn);let e=this.attributes.position,t=this.morphAttributes.position;if(e&&e.isGLBufferAttribute){et("BufferGeometry.computeBoundingBox(): GLBufferAttribute requires a manual bounding box.",this),this.boundingBox.set(new F(-1/0,-1/0,-1/0),new F(1/0,1/0,1/0));return}if(e!==void 0){if(this.boundingBox.setFromBufferAttribute(e),t)for(let n=0,s=t.length;n<s;n++){let r=t[n];si.setFromBufferAttribute(r),this.morphTargetsRelative?(Tn.addVectors(this.boundingBox.min,si.min),this.boundingBox.expandByPoint(Tn),Tn.addVectors(this.boundingBox.max,si.max),this.boundingBox.expandByPoint(Tn)):(this.boundingBox.expandByPoint(si.min),this.boundingBox.expandByPoint(si.max))}}else this.boundingBox.makeEmpty();(isNaN(this.boundingBox.min.x)||isNaN(this.boundingBox.min.y)||isNaN(this.boundingBox.min.z))&&et('BufferGeometry.computeBoundingBox(): Computed min/max have NaN values. The "position" attribute is likely to have NaN values.',this)}computeBoundingSphere(){this.boundingSphere===null&&(this.boundingSphere=new Xi);let e=this.attributes.position,t=this.morphAttributes.position;if(e&&e.isGLBufferAttribute){et("BufferGeometry.computeBoundingSphere(): GLBufferAttribute requires a manual bounding sphere.",this),this.boundingSphere.set(new F,1/0);return}if(e){let n=this.boundingSphere.center;if(si.setFromBufferAttribute(e),t)for(let r=0,o=t.length;r<o;r++){let a=t[r];Zo.setFromBufferAttribute(a),this.morphTargetsRelative?(Tn.addVectors(si.min,Zo.min),si.expandByPoint(Tn),Tn.addVectors(si.max,Zo.max),si.expandByPoint(Tn)):(si.expandByPoint(Zo.min),si.expandByPoint(Zo.max))}si.getCenter(n);let s=0;for(let r=0,o=e.count;r<o;r++)Tn.fromBufferAttribute(e,r),s=Math.max(s,n.distanceToSquared(Tn));if(t)for(let r=0,o=t.length;r<o;r++){let a=t[r],l=this.morphTargetsRelative;for(let c=0,h=a.count;c<h;c++)Tn.fromBufferAttribute(a,c),l&&(eo.fromBufferAttribute(e,c),Tn.add(eo)),s=Math.max(s,n.distanceToSquared(Tn))}this.boundingSphere.radius=Math.sqrt(s),isNaN(this.boundingSphere.radius)&&et('BufferGeometry.computeBoundingSphere(): Computed radius is NaN. The "position" attribute is likely to have NaN values.',this)}}computeTangents(){let e=this.index,t=this.attributes;if(e===null||t.position===void 0||t.normal===void 0||t.uv===void 0){et("BufferGeometry: .computeTangents() failed. Missing required attributes (index, position, normal or uv)");return}let n=t.position,s=t.normal,r=t.uv,o=this.getAttribute("tangent");(o===void 0||o.count!==n.count)&&(o=new qt(new Float32Array(4*n.count),4),this.setAttribute("tangent",o));let a=[],l=[],c=new Uint8Array(n.count);for(let B=0;B<n.count;B++)a[B]=new F,l[B]=new F;let h=new F,u=new F,d=new F,f=new ze,p=new ze,y=new ze,m=new F,g=new F;function v(B,N,D){c[B]=c[N]=c[D]=1,h.fromBufferAttribute(n,B),u.fromBufferAttribute(n,N),d.fromBufferAttribute(n,D),f.fromBufferAttribute(r,B),p.fromBufferAttribute(r,N),y.fromBufferAttribute(r,D),u.sub(h),d.sub(h),p.sub(f),y.sub(f);let G=1/(p.x*y.y-y.x*p.y);isFinite(G)&&(m.copy(u).multiplyScalar(y.y).addScaledVector(d,-p.y).multiplyScalar(G),g.copy(d).multiplyScalar(p.x).addScaledVector(u,-y.x).multiplyScalar(G),a[B].add(m),a[N].add(m),a[D].add(m),l[B].add(g),l[N].add(g),l[D].add(g))}let A=this.groups;A.length===0&&(A=[{start:0,count:e.count}]);for(let B=0,N=A.length;B<N;++B){let D=A[B],G=D.start,V=D.count;for(let I=G,W=G+V;I<W;I+=3)v(e.getX(I+0),e.getX(I+1),e.getX(I+2))}let S=new F,C=new F,T=new F,x=new F;function E(B){T.fromBufferAttribute(s,B),x.copy(T);let N=a[B];S.copy(N),S.sub(T.multiplyScalar(T.dot(N))).normalize(),C.crossVectors(x,N);let G=C.dot(l[B])<0?-1:1;o.setXYZW(B,S.x,S.y,S.z,G)}for(let B=0,N=n.count;B<N;++B)c[B]&&E(B);this._transformed=!0}computeVertexNormals(){let e=this.index,t=this.getAttribute("position");if(t!==void 0){let n=this.getAttribute("normal");if(n===void 0||n.count!==t.count)n=new qt(new Float32Array(t.count*3),3),this.setAttribute("normal",n);else for(let d=0,f=n.count;d<f;d++)n.setXYZ(d,0,0,0);let s=new F,r=new F,o=new F,a=new F,l=new F,c=new F,h=new F,u=new F;if(e)for(let d=0,f=e.count;d<f;d+=3){let p=e.getX(d+0),y=e.getX(d+1),m=e.getX(d+2);s.fromBufferAttribute(t,p),r.fromBufferAttribute(t,y),o.fromBufferAttribute(t,m),h.subVectors(o,r),u.subVectors(s,r),h.cross(u),a.fromBufferAttribute(n,p),l.fromBufferAttribute(n,y),c.fromBufferAttribute(n,m),a.add(h),l.add(h),c.add(h),n.setXYZ(p,a.x,a.y,a.z),n.setXYZ(y,l.x,l.y,l.z),n.setXYZ(m,c.x,c.y,c.z)}else for(let d=0,f=t.count;d<f;d+=3)s.fromBufferAttribute(t,d+0),r.fromBufferAttribute(t,d+1),o.fromBufferAttribute(t,d+2),h.subVectors(o,r),u.subVectors(s,r),h.cross(u),n.setXYZ(d+0,h.x,h.y,h.z),n.setXYZ(d+1,h.x,h.y,h.z),n.setXYZ(d+2,h.x,h.y,h.z);this.normalizeNormals(),n.needsUpdate=!0}}normalizeNormals(){let e=this.attributes.normal;for(let t=0,n=e.count;t<n;t++)Tn.fromBufferAttribute(e,t),Tn.normalize(),e.setXYZ(t,Tn.x,Tn.y,Tn.z)}toNonIndexed(){function e(a,l){let c=a.array,h=a.itemSize,u=a.normalized,d=new c.constructor(l.length*h),f=0,p=0;for(let y=0,m=l.length;y<m;y++){a.isInterleavedBufferAttribute?f=l[y]*a.data.stride+a.offset:f=l[y]*h;for(let g=0;g<h;g++)d[p++]=c[f++]}return new qt(d,h,u)}if(this.index===null)return $e("BufferGeometry.toNonIndexed(): BufferGeometry is already non-indexed."),this;let t=new i,n=this.index.array,s=this.attributes;for(let a in s){let l=s[a],c=e(l,n);t.setAttribute(a,c)}let r=this.morphAttributes;for(let a in r){let l=[],c=r[a];for(let h=0,u=c.length;h<u;h++){let d=c[h],f=e(d,n);l.push(f)}t.morphAttributes[a]=l}t.morphTargetsRelative=this.morphTargetsRelative;let o=this.groups;for(let a=0,l=o.length;a<l;a++){let c=o[a];t.addGroup(c.start,c.count,c.materialIndex)}return t}toJSON(){let e={metadata:{version:4.7,type:"BufferGeometry",generator:"BufferGeometry.toJSON"}};if(e.uuid=this.uuid,e.type=this.parameters!==void 0&&this._transformed===!0?"BufferGeometry":this.type,e.name=this.name,Object.keys(this.userData).length>0&&(e.userData=this.userData),this.parameters!==void 0&&this._transformed!==!0){let l=this.parameters;for(let c in l)l[c]!==void 0&&(e[c]=l[c]);return e}e.data={attributes:{}};let t=this.index;t!==null&&(e.data.index={type:t.array.constructor.name,array:Array.prototype.slice.call(t.array)});let n=this.attributes;for(let l in n){let c=n[l];e.data.attributes[l]=c.toJSON(e.data)}let s={},r=!1;for(let l in this.morphAttributes){let c=this.morphAttributes[l],h=[];for(let u=0,d=c.length;u<d;u++){let f=c[u];h.push(f.toJSON(e.data))}h.length>0&&(s[l]=h,r=!0)}r&&(e.data.morphAttributes=s,e.data.morphTargetsRelative=this.morphTargetsRelative);let o=this.groups;o.length>0&&(e.data.groups=JSON.parse(JSON.stringify(o)));let a=this.boundingSphere;return a!==null&&(e.data.boundingSphere=a.toJSON()),e}clone(){return new this.constructor().copy(this)}copy(e){this.index=null,this.attributes={},this.morphAttributes={},this.groups=[],this.boundingBox=null,this.boundingSphere=null;let t={};this.name=e.name;let n=e.index;n!==null&&this.setIndex(n.clone());let s=e.attributes;for(let c in s){let h=s[c];this.setAttribute(c,h.clone(t))}let r=e.morphAttributes;for(let c in r){let h=[],u=r[c];for(let d=0,f=u.length;d<f;d++)h.push(u[d].clone(t));this.morphAttributes[c]=h}this.morphTargetsRelative=e.morphTargetsRelative;let o=e.groups;for(let c=0,h=o.length;c<h;c++){let u=o[c];this.addGroup(u.start,u.count,u.materialIndex)}let a=e.boundingBox;a!==null&&(this.boundingBox=a.clone());let l=e.boundingSphere;return l!==null&&(this.boundingSphere=l.clone()),this.drawRange.start=e.drawRange.start,this.drawRange.count=e.drawRange.count,this.userData=e.userData,this._transformed=e._transformed,this}dispose(){this.dispatchEvent({type:"dispose"})}};var Bu=new F,Cv=new F,Pv=new tt,oi=class{constructor(e=new F(1,0,0),t=0){this.isPlane=!0,this.normal=e,this.constant=t}set(e,t){return this.normal.copy(e),this.constant=t,this}setComponents(e,t,n,s){return this.normal.set(e,t,n),this.constant=s,this}setFromNormalAndCoplanarPoint(e,t){return this.normal.copy(e),this.constant=-t.dot(this.normal),this}setFromCoplanarPoints(e,t,n){let s=Bu.subVectors(n,t).cross(Cv.subVectors(e,t)).normalize();return this.setFromNormalAndCoplanarPoint(s,e),this}copy(e){return this.normal.copy(e.normal),this.constant=e.constant,this}normalize(){let e=1/this.normal.length();return this.normal.multiplyScalar(e),this.constant*=e,this}negate(){return this.constant*=-1,this.normal.negate(),this}distanceToPoint(e){return this.normal.dot(e)+this.constant}distanceToSphere(e){return this.distanceToPoint(e.center)-e.radius}projectPoint(e,t){return t.copy(e).addScaledVector(this.normal,-this.distanceToPoint(e))}intersectLine(e,t,n=!0){let s=e.delta(Bu),r=this.normal.dot(s);if(r===0)return this.distanceToPoint(e.start)===0?t.copy(e.start):null;let o=-(e.start.dot(this.normal)+this.constant)/r;return n===!0&&(o<0||o>1)?null:t.copy(e.start).addScaledVector(s,o)}intersectsLine(e){let t=this.distanceToPoint(e.start),n=this.distanceToPoint(e.end);return t<0&&n>0||n<0&&t>0}intersectsBox(e){return e.intersectsPlane(this)}intersectsSphere(e){return e.intersectsPlane(this)}coplanarPoint(e){return e.copy(this.normal).multiplyScalar(-this.constant)}applyMatrix4(e,t){let n=t||Pv.getNormalMatrix(e),s=this.coplanarPoint(Bu).applyMatrix4(e),r=this.normal.applyMatrix3(n).normalize();return this.constant=-s.dot(r),this}translate(e){return this.constant-=e.dot(this.normal),this}equals(e){return e.normal.equals(this.normal)&&e.constant===this.constant}clone(){return new this.constructor().copy(this)}toJSON(){return{normal:this.normal.toArray(),constant:this.constant}}fromJSON(e){return this.normal.fromArray(e.normal),this.constant=e.constant,this}},Iv=0,fs=class extends Ci{constructor(){super(),this.isMaterial=!0,Object.defineProperty(this,"id",{value:Iv++}),this.uuid=bo(),this.name="",this.type="Material",this.blending=_o,this.side=qi,this.vertexColors=!1,this.opacity=1,this.transparent=!1,this.alphaHash=!1,this.blendSrc=nd,this.blendDst=id,this.blendEquation=gr,this.blendSrcAlpha=null,this.blendDstAlpha=null,this.blendEquationAlpha=null,this.blendColor=new gt(0,0,0),this.blendAlpha=0,this.depthFunc=ro,this.depthTest=!0,this.depthWrite=!0,this.stencilWriteMask=255,this.stencilFunc=dg,this.stencilRef=0,this.stencilFuncMask=255,this.stencilFail=Wl,this.stencilZFail=Wl,this.stencilZPass=Wl,this.stencilWrite=!1,this.clippingPlanes=null,this.clipIntersection=!1,this.clipShadows=!1,this.shadowSide=null,this.colorWrite=!0,this.precision=null,this.polygonOffset=!1,this.polygonOffsetFactor=0,this.polygonOffsetUnits=0,this.dithering=!1,this.alphaToCoverage=!1,this.premultipliedAlpha=!1,this.forceSinglePass=!1,this.allowOverride=!0,this.visible=!0,this.toneMapped=!0,this.userData={},this.version=0,this._alphaTest=0}get alphaTest(){return this._alphaTest}set alphaTest(e){this._alphaTest>0!=e>0&&this.version++,this._alphaTest=e}onBeforeRender(){}onBeforeCompile(){}customProgramCacheKey(){return this.onBeforeCompile.toString()}setValues(e){if(e!==void 0)for(let t in e){let n=e[t];if(n===void 0){$e(`Material: parameter '${t}' has value of undefined.`);continue}let s=this[t];if(s===void 0){$e(`Material: '${t}' is not a property of THREE.${this.type}.`);continue}s&&s.isColor?s.set(n):s&&s.isVector2&&n&&n.isVector2||s&&s.isEuler&&n&&n.isEuler||s&&s.isVector3&&n&&n.isVector3?s.copy(n):this[t]=n}}toJSON(e){let t=e===void 0||typeof e=="string";t&&(e={textures:{},images:{}});let n={metadata:{version:4.7,type:"Material",generator:"Material.toJSON"}};n.uuid=this.uuid,n.type=this.type,n.blending=this.blending,n.side=this.side,n.shadowSide=this.shadowSide,n.vertexColors=this.vertexColors,n.opacity=this.opacity,n.transparent=this.transparent,n.blendSrc=this.blendSrc,n.blendDst=this.blendDst,n.blendEquation=this.blendEquation,n.blendSrcAlpha=this.blendSrcAlpha,n.blendDstAlpha=this.blendDstAlpha,n.blendEquationAlpha=this.blendEquationAlpha,n.blendColor=this.blendColor.getHex(),n.blendAlpha=this.blendAlpha,n.depthFunc=this.depthFunc,n.depthTest=this.depthTest,n.depthWrite=this.depthWrite,n.colorWrite=this.colorWrite,n.clipIntersection=this.clipIntersection,n.clipShadows=this.clipShadows,n.stencilWriteMask=this.stencilWriteMask,n.stencilFunc=this.stencilFunc,n.stencilRef=this.stencilRef,n.stencilFuncMask=this.stencilFuncMask,n.stencilFail=this.stencilFail,n.stencilZFail=this.stencilZFail,n.stencilZPass=this.stencilZPass,n.stencilWrite=this.stencilWrite,n.polygonOffset=this.polygonOffset,n.polygonOffsetFactor=this.polygonOffsetFactor,n.polygonOffsetUnits=this.polygonOffsetUnits,n.dithering=this.dithering,n.alphaTest=this.alphaTest,n.alphaHash=this.alphaHash,n.alphaToCoverage=this.alphaToCoverage,n.premultipliedAlpha=this.premultipliedAlpha,n.forceSinglePass=this.forceSinglePass,n.allowOverride=this.allowOverride,n.visible=this.visible,n.toneMapped=this.toneMapped,n.name=this.name,this.color&&this.color.isColor&&(n.color=this.color.getHex()),this.roughness!==void 0&&(n.roughness=this.roughness),this.metalness!==void 0&&(n.metalness=this.metalness),this.sheen!==void 0&&(n.sheen=this.sheen),this.sheenColor&&this.sheenColor.isColor&&(n.sheenColor=this.sheenColor.getHex()),this.sheenRoughness!==void 0&&(n.sheenRoughness=this.sheenRoughness),this.emissive&&this.emissive.isColor&&(n.emissive=this.emissive.getHex()),this.emissiveIntensity!==void 0&&(n.emissiveIntensity=this.emissiveIntensity),this.specular&&this.specular.isColor&&(n.specular=this.specular.getHex()),this.specularIntensity!==void 0&&(n.specularIntensity=this.specularIntensity),this.specularColor&&this.specularColor.isColor&&(n.specularColor=this.specularColor.getHex()),this.shininess!==void 0&&(n.shininess=this.shininess),this.clearcoat!==void 0&&(n.clearcoat=this.clearcoat),this.clearcoatRoughness!==void 0&&(n.clearcoatRoughness=this.clearcoatRoughness),this.diffuseRoughness!==void 0&&(n.diffuseRoughness=this.diffuseRoughness),this.diffuseRoughnessMap&&this.diffuseRoughnessMap.isTexture&&(n.diffuseRoughnessMap=this.diffuseRoughnessMap.toJSON(e).uuid),this.clearcoatMap&&this.clearcoatMap.isTexture&&(n.clearcoatMap=this.clearcoatMap.toJSON(e).uuid),this.clearcoatRoughnessMap&&this.clearcoatRoughnessMap.isTexture&&(n.clearcoatRoughnessMap=this.clearcoatRoughnessMap.toJSON(e).uuid),this.clearcoatNormalMap&&this.clearcoatNormalMap.isTexture&&(n.clearcoatNormalMap=this.clearcoatNormalMap.toJSON(e).uuid,n.clearcoatNormalScale=this.clearcoatNormalScale.toArray()),this.sheenColorMap&&this.sheenColorMap.isTexture&&(n.sheenColorMap=this.sheenColorMap.toJSON(e).uuid),this.sheenRoughnessMap&&this.sheenRoughnessMap.isTexture&&(n.sheenRoughnessMap=this.sheenRoughnessMap.toJSON(e).uuid),this.dispersion!==void 0&&(n.dispersion=this.dispersion),this.retroreflectivity!==void 0&&(n.retroreflectivity=this.retroreflectivity),this.iridescence!==void 0&&(n.iridescence=this.iridescence),this.iridescenceIOR!==void 0&&(n.iridescenceIOR=this.iridescenceIOR),this.iridescenceThicknessMinimum!==void 0&&(n.iridescenceThicknessMinimum=this.iridescenceThicknessMinimum),this.iridescenceThicknessMaximum!==void 0&&(n.iridescenceThicknessMaximum=this.iridescenceThicknessMaximum),this.iridescenceMap&&this.iridescenceMap.isTexture&&(n.iridescenceMap=this.iridescenceMap.toJSON(e).uuid),this.iridescenceThicknessMap&&this.iridescenceThicknessMap.isTexture&&(n.iridescenceThicknessMap=this.iridescenceThicknessMap.toJSON(e).uuid),this.anisotropy!==void 0&&(n.anisotropy=this.anisotropy),this.anisotropyRotation!==void 0&&(n.anisotropyRotation=this.anisotropyRotation),this.anisotropyMap&&this.anisotropyMap.isTexture&&(n.anisotropyMap=this.anisotropyMap.toJSON(e).uuid),this.map&&this.map.isTexture&&(n.map=this.map.toJSON(e).uuid),this.matcap&&this.matcap.isTexture&&(n.matcap=this.matcap.toJSON(e).uuid),this.alphaMap&&this.alphaMap.isTexture&&(n.alphaMap=this.alphaMap.toJSON(e).uuid),this.lightMap&&this.lightMap.isTexture&&(n.lightMap=this.lightMap.toJSON(e).uuid,n.lightMapIntensity=this.lightMapIntensity),this.aoMap&&this.aoMap.isTexture&&(n.aoMap=this.aoMap.toJSON(e).uuid,n.aoMapIntensity=this.aoMapIntensity),this.bumpMap&&this.bumpMap.isTexture&&(n.bumpMap=this.bumpMap.toJSON(e).uuid,n.bumpScale=this.bumpScale),this.normalMap&&this.normalMap.isTexture&&(n.normalMap=this.normalMap.toJSON(e).uuid,n.normalMapType=this.normalMapType,n.normalScale=this.normalScale.toArray()),this.displacementMap&&this.displacementMap.isTexture&&(n.displacementMap=this.displacementMap.toJSON(e).uuid,n.displacementScale=this.displacementScale,n.displacementBias=this.displacementBias),this.roughnessMap&&this.roughnessMap.isTexture&&(n.roughnessMap=this.roughnessMap.toJSON(e).uuid),this.metalnessMap&&this.metalnessMap.isTexture&&(n.metalnessMap=this.metalnessMap.toJSON(e).uuid),this.emissiveMap&&this.emissiveMap.isTexture&&(n.emissiveMap=this.emissiveMap.toJSON(e).uuid),this.specularMap&&this.specularMap.isTexture&&(n.specularMap=this.specularMap.toJSON(e).uuid),this.specularIntensityMap&&this.specularIntensityMap.isTexture&&(n.specularIntensityMap=this.specularIntensityMap.toJSON(e).uuid),this.specularColorMap&&this.specularColorMap.isTexture&&(n.specularColorMap=this.specularColorMap.toJSON(e).uuid),this.envMap&&this.envMap.isTexture&&(n.envMap=this.envMap.toJSON(e).uuid,this.combine!==void 0&&(n.combine=this.combine)),this.envMapRotation!==void 0&&(n.envMapRotation=this.envMapRotation.toArray()),this.envMapIntensity!==void 0&&(n.envMapIntensity=this.envMapIntensity),this.reflectivity!==void 0&&(n.reflectivity=this.reflectivity),this.refractionRatio!==void 0&&(n.refractionRatio=this.refractionRatio),this.gradientMap&&this.gradientMap.isTexture&&(n.gradientMap=this.gradientMap.toJSON(e).uuid),this.transmission!==void 0&&(n.transmission=this.transmission),this.transmissionMap&&this.transmissionMap.isTexture&&(n.transmissionMap=this.transmissionMap.toJSON(e).uuid),this.thickness!==void 0&&(n.thickness=this.thickness),this.thicknessMap&&this.thicknessMap.isTexture&&(n.thicknessMap=this.thicknessMap.toJSON(e).uuid),this.attenuationDistance!==void 0&&(n.attenuationDistance=this.attenuationDistance),this.attenuationColor!==void 0&&(n.attenuationColor=this.attenuationColor.getHex()),this.size!==void 0&&(n.size=this.size),this.sizeAttenuation!==void 0&&(n.sizeAttenuation=this.sizeAttenuation),Array.isArray(this.clippingPlanes)&&this.clippingPlanes.length>0&&(n.clippingPlanes=this.clippingPlanes.map(r=>r.toJSON())),this.rotation!==void 0&&(n.rotation=this.rotation),this.depthPacking!==void 0&&(n.depthPacking=this.depthPacking),this.linewidth!==void 0&&(n.linewidth=this.linewidth),this.linecap!==void 0&&(n.linecap=this.linecap),this.linejoin!==void 0&&(n.linejoin=this.linejoin),this.dashSize!==void 0&&(n.dashSize=this.dashSize),this.gapSize!==void 0&&(n.gapSize=this.gapSize),this.scale!==void 0&&(n.scale=this.scale),this.wireframe!==void 0&&(n.wireframe=this.wireframe),this.wireframeLinewidth!==void 0&&(n.wireframeLinewidth=this.wireframeLinewidth),this.wireframeLinecap!==void 0&&(n.wireframeLinecap=this.wireframeLinecap),this.wireframeLinejoin!==void 0&&(n.wireframeLinejoin=this.wireframeLinejoin),this.flatShading!==void 0&&(n.flatShading=this.flatShading),this.fog!==void 0&&(n.fog=this.fog),Object.keys(this.userData).length>0&&(n.userData=this.userData);function s(r){let o=[];for(let a in r){let l=r[a];delete l.metadata,o.push(l)}return o}if(t){let r=s(e.textures),o=s(e.images);r.length>0&&(n.textures=r),o.length>0&&(n.images=o)}return n}fromJSON(e,t){if(e.uuid!==void 0&&(this.uuid=e.uuid),e.name!==void 0&&(this.name=e.name),e.color!==void 0&&this.color!==void 0&&this.color.setHex(e.color),e.roughness!==void 0&&(this.roughness=e.roughness),e.metalness!==void 0&&(this.metalness=e.metalness),e.sheen!==void 0&&(this.sheen=e.sheen),e.sheenColor!==void 0&&(this.sheenColor=new gt().setHex(e.sheenColor)),e.sheenRoughness!==void 0&&(this.sheenRoughness=e.sheenRoughness),e.emissive!==void 0&&this.emissive!==void 0&&this.emissive.setHex(e.emissive),e.specular!==void 0&&this.specular!==void 0&&this.specular.setHex(e.specular),e.specularIntensity!==void 0&&(this.specularIntensity=e.specularIntensity),e.specularColor!==void 0&&this.specularColor!==void 0&&this.specularColor.setHex(e.specularColor),e.shininess!==void 0&&(this.shininess=e.shininess),e.clearcoat!==void 0&&(this.clearcoat=e.clearcoat),e.clearcoatRoughness!==void 0&&(this.clearcoatRoughness=e.clearcoatRoughness),e.diffuseRoughness!==void 0&&(this.diffuseRoughness=e.diffuseRoughness),e.dispersion!==void 0&&(this.dispersion=e.dispersion),e.retroreflectivity!==void 0&&(this.retroreflectivity=e.retroreflectivity),e.iridescence!==void 0&&(this.iridescence=e.iridescence),e.iridescenceIOR!==void 0&&(this.iridescenceIOR=e.iridescenceIOR),e.iridescenceThicknessMinimum!==void 0&&(this.iridescenceThicknessMinimum=e.iridescenceThicknessMinimum),e.iridescenceThicknessMaximum!==void 0&&(this.iridescenceThicknessMaximum=e.iridescenceThicknessMaximum),e.iridescenceThicknessRange!==void 0&&(this.iridescenceThicknessMinimum=e.iridescenceThicknessRange[0],this.iridescenceThicknessMaximum=e.iridescenceThicknessRange[1]),e.transmission!==void 0&&(this.transmission=e.transmission),e.thickness!==void 0&&(this.thickness=e.thickness),e.attenuationDistance!==void 0&&(this.attenuationDistance=e.attenuationDistance),e.attenuationColor!==void 0&&this.attenuationColor!==void 0&&this.attenuationColor.setHex(e.attenuationColor),e.anisotropy!==void 0&&(this.anisotropy=e.anisotropy),e.anisotropyRotation!==void 0&&(this.anisotropyRotation=e.anisotropyRotation),e.fog!==void 0&&(this.fog=e.fog),e.flatShading!==void 0&&(this.flatShading=e.flatShading),e.blending!==void 0&&(this.blending=e.blending),e.combine!==void 0&&(this.combine=e.combine),e.side!==void 0&&(this.side=e.side),e.shadowSide!==void 0&&(this.shadowSide=e.shadowSide),e.opacity!==void 0&&(this.opacity=e.opacity),e.transparent!==void 0&&(this.transparent=e.transparent),e.alphaTest!==void 0&&(this.alphaTest=e.alphaTest),e.alphaHash!==void 0&&(this.alphaHash=e.alphaHash),e.depthFunc!==void 0&&(this.depthFunc=e.depthFunc),e.depthTest!==void 0&&(this.depthTest=e.depthTest),e.depthWrite!==void 0&&(this.depthWrite=e.depthWrite),e.colorWrite!==void 0&&(this.colorWrite=e.colorWrite),e.clippingPlanes!==void 0&&(this.clippingPlanes=e.clippingPlanes.map(n=>new oi().fromJSON(n))),e.clipIntersection!==void 0&&(this.clipIntersection=e.clipIntersection),e.clipShadows!==void 0&&(this.clipShadows=e.clipShadows),e.depthPacking!==void 0&&(this.depthPacking=e.depthPacking),e.blendSrc!==void 0&&(this.blendSrc=e.blendSrc),e.blendDst!==void 0&&(this.blendDst=e.blendDst),e.blendEquation!==void 0&&(this.blendEquation=e.blendEquation),e.blendSrcAlpha!==void 0&&(this.blendSrcAlpha=e.blendSrcAlpha),e.blendDstAlpha!==void 0&&(this.blendDstAlpha=e.blendDstAlpha),e.blendEquationAlpha!==void 0&&(this.blendEquationAlpha=e.blendEquationAlpha),e.blendColor!==void 0&&this.blendColor!==void 0&&this.blendColor.setHex(e.blendColor),e.blendAlpha!==void 0&&(this.blendAlpha=e.blendAlpha),e.stencilWriteMask!==void 0&&(this.stencilWriteMask=e.stencilWriteMask),e.stencilFunc!==void 0&&(this.stencilFunc=e.stencilFunc),e.stencilRef!==void 0&&(this.stencilRef=e.stencilRef),e.stencilFuncMask!==void 0&&(this.stencilFuncMask=e.stencilFuncMask),e.stencilFail!==void 0&&(this.stencilFail=e.stencilFail),e.stencilZFail!==void 0&&(this.stencilZFail=e.stencilZFail),e.stencilZPass!==void 0&&(this.stencilZPass=e.stencilZPass),e.stencilWrite!==void 0&&(this.stencilWrite=e.stencilWrite),e.wireframe!==void 0&&(this.wireframe=e.wireframe),e.wireframeLinewidth!==void 0&&(this.wireframeLinewidth=e.wireframeLinewidth),e.wireframeLinecap!==void 0&&(this.wireframeLinecap=e.wireframeLinecap),e.wireframeLinejoin!==void 0&&(this.wireframeLinejoin=e.wireframeLinejoin),e.rotation!==void 0&&(this.rotation=e.rotation),e.linewidth!==void 0&&(this.linewidth=e.linewidth),e.linecap!==void 0&&(this.linecap=e.linecap),e.linejoin!==void 0&&(this.linejoin=e.linejoin),e.dashSize!==void 0&&(this.dashSize=e.dashSize),e.gapSize!==void 0&&(this.gapSize=e.gapSize),e.scale!==void 0&&(this.scale=e.scale),e.polygonOffset!==void 0&&(this.polygonOffset=e.polygonOffset),e.polygonOffsetFactor!==void 0&&(this.polygonOffsetFactor=e.polygonOffsetFactor),e.polygonOffsetUnits!==void 0&&(this.polygonOffsetUnits=e.polygonOffsetUnits),e.dithering!==void 0&&(this.dithering=e.dithering),e.alphaToCoverage!==void 0&&(this.alphaToCoverage=e.alphaToCoverage),e.premultipliedAlpha!==void 0&&(this.premultipliedAlpha=e.premultipliedAlpha),e.forceSinglePass!==void 0&&(this.forceSinglePass=e.forceSinglePass),e.allowOverride!==void 0&&(this.allowOverride=e.allowOverride),e.visible!==void 0&&(this.visible=e.visible),e.toneMapped!==void 0&&(this.toneMapped=e.toneMapped),e.userData!==void 0&&(this.userData=e.userData),e.vertexColors!==void 0&&(typeof e.vertexColors=="number"?this.vertexColors=e.vertexColors>0:this.vertexColors=e.vertexColors),e.size!==void 0&&(this.size=e.size),e.sizeAttenuation!==void 0&&(this.sizeAttenuation=e.sizeAttenuation),e.map!==void 0&&(this.map=t[e.map]||null),e.matcap!==void 0&&(this.matcap=t[e.matcap]||null),e.alphaMap!==void 0&&(this.alphaMap=t[e.alphaMap]||null),e.bumpMap!==void 0&&(this.bumpMap=t[e.bumpMap]||null),e.bumpScale!==void 0&&(this.bumpScale=e.bumpScale),e.normalMap!==void 0&&(this.normalMap=t[e.normalMap]||null),e.normalMapType!==void 0&&(this.normalMapType=e.normalMapType),e.normalScale!==void 0){let n=e.normalScale;Array.isArray(n)===!1&&(n=[n,n]),this.normalScale=new ze().fromArray(n)}return e.displacementMap!==void 0&&(this.displacementMap=t[e.displacementMap]||null),e.displacementScale!==void 0&&(this.displacementScale=e.displacementScale),e.displacementBias!==void 0&&(this.displacementBias=e.displacementBias),e.roughnessMap!==void 0&&(this.roughnessMap=t[e.roughnessMap]||null),e.metalnessMap!==void 0&&(this.metalnessMap=t[e.metalnessMap]||null),e.emissiveMap!==void 0&&(this.emissiveMap=t[e.emissiveMap]||null),e.emissiveIntensity!==void 0&&(this.emissiveIntensity=e.emissiveIntensity),e.specularMap!==void 0&&(this.specularMap=t[e.specularMap]||null),e.specularIntensityMap!==void 0&&(this.specularIntensityMap=t[e.specularIntensityMap]||null),e.specularColorMap!==void 0&&(this.specularColorMap=t[e.specularColorMap]||null),e.envMap!==void 0&&(this.envMap=t[e.envMap]||null),e.envMapRotation!==void 0&&this.envMapRotation.fromArray(e.envMapRotation),e.envMapIntensity!==void 0&&(this.envMapIntensity=e.envMapIntensity),e.reflectivity!==void 0&&(this.reflectivity=e.reflectivity),e.refractionRatio!==void 0&&(this.refractionRatio=e.refractionRatio),e.lightMap!==void 0&&(this.lightMap=t[e.lightMap]||null),e.lightMapIntensity!==void 0&&(this.lightMapIntensity=e.lightMapIntensity),e.aoMap!==void 0&&(this.aoMap=t[e.aoMap]||null),e.aoMapIntensity!==void 0&&(this.aoMapIntensity=e.aoMapIntensity),e.gradientMap!==void 0&&(this.gradientMap=t[e.gradientMap]||null),e.clearcoatMap!==void 0&&(this.clearcoatMap=t[e.clearcoatMap]||null),e.clearcoatRoughnessMap!==void 0&&(this.clearcoatRoughnessMap=t[e.clearcoatRoughnessMap]||null),e.clearcoatNormalMap!==void 0&&(this.clearcoatNormalMap=t[e.clearcoatNormalMap]||null),e.clearcoatNormalScale!==void 0&&(this.clearcoatNormalScale=new ze().fromArray(e.clearcoatNormalScale)),e.diffuseRoughnessMap!==void 0&&(this.diffuseRoughnessMap=t[e.diffuseRoughnessMap]||null),e.iridescenceMap!==void 0&&(this.iridescenceMap=t[e.iridescenceMap]||null),e.iridescenceThicknessMap!==void 0&&(this.iridescenceThicknessMap=t[e.iridescenceThicknessMap]||null),e.transmissionMap!==void 0&&(this.transmissionMap=t[e.transmissionMap]||null),e.thicknessMap!==void 0&&(this.thicknessMap=t[e.thicknessMap]||null),e.anisotropyMap!==void 0&&(this.anisotropyMap=t[e.anisotropyMap]||null),e.sheenColorMap!==void 0&&(this.sheenColorMap=t[e.sheenColorMap]||null),e.sheenRoughnessMap!==void 0&&(this.sheenRoughnessMap=t[e.sheenRoughnessMap]||null),this}clone(){return new this.constructor().copy(this)}copy(e){this.name=e.name,this.blending=e.blending,this.side=e.side,this.vertexColors=e.vertexColors,this.opacity=e.opacity,this.transparent=e.transparent,this.blendSrc=e.blendSrc,this.blendDst=e.blendDst,this.blendEquation=e.blendEquation,this.blendSrcAlpha=e.blendSrcAlpha,this.blendDstAlpha=e.blendDstAlpha,this.blendEquationAlpha=e.blendEquationAlpha,this.blendColor.copy(e.blendColor),this.blendAlpha=e.blendAlpha,this.depthFunc=e.depthFunc,this.depthTest=e.depthTest,this.depthWrite=e.depthWrite,this.stencilWriteMask=e.stencilWriteMask,this.stencilFunc=e.stencilFunc,this.stencilRef=e.stencilRef,this.stencilFuncMask=e.stencilFuncMask,this.stencilFail=e.stencilFail,this.stencilZFail=e.stencilZFail,this.stencilZPass=e.stencilZPass,this.stencilWrite=e.stencilWrite;let t=e.clippingPlanes,n=null;if(t!==null){let s=t.length;n=new Array(s);for(let r=0;r!==s;++r)n[r]=t[r].clone()}return this.clippingPlanes=n,this.clipIntersection=e.clipIntersection,this.clipShadows=e.clipShadows,this.shadowSide=e.shadowSide,this.colorWrite=e.colorWrite,this.precision=e.precision,this.polygonOffset=e.polygonOffset,this.polygonOffsetFactor=e.polygonOffsetFactor,this.polygonOffsetUnits=e.polygonOffsetUnits,this.dithering=e.dithering,this.alphaTest=e.alphaTest,this.alphaHash=e.alphaHash,this.alphaToCoverage=e.alphaToCoverage,this.premultipliedAlpha=e.premultipliedAlpha,this.forceSinglePass=e.forceSinglePass,this.allowOverride=e.allowOverride,this.visible=e.visible,this.toneMapped=e.toneMapped,this.userData=JSON.parse(JSON.stringify(e.userData)),this}dispose(){this.dispatchEvent({type:"dispose"})}set needsUpdate(e){e===!0&&this.version++}};var cs=new F,ku=new F,Tl=new F,Al=new F,Us=class{constructor(e=new F,t=new F(0,0,-1)){this.origin=e,this.direction=t}set(e,t){return this.origin.copy(e),this.direction.copy(t),this}copy(e){return this.origin.copy(e.origin),this.direction.copy(e.direction),this}at(e,t){return t.copy(this.origin).addScaledVector(this.direction,e)}lookAt(e){return this.direction.copy(e).sub(this.origin).normalize(),this}recast(e){return this.origin.copy(this.at(e,cs)),this}closestPointToPoint(e,t){t.subVectors(e,this.origin);let n=t.dot(this.direction);return n<0?t.copy(this.origin):t.copy(this.origin).addScaledVector(this.direction,n)}distanceToPoint(e){return Math.sqrt(this.distanceSqToPoint(e))}distanceSqToPoint(e){let t=cs.subVectors(e,this.origin).dot(this.direction);return t<0?this.origin.distanceToSquared(e):(cs.copy(this.origin).addScaledVector(this.direction,t),cs.distanceToSquared(e))}distanceSqToSegment(e,t,n,s){ku.copy(e).add(t).multiplyScalar(.5),Tl.copy(t).sub(e).normalize(),Al.copy(this.origin).sub(ku);let r=e.distanceTo(t)*.5,o=-this.direction.dot(Tl),a=Al.dot(this.direction),l=-Al.dot(Tl),c=Al.lengthSq(),h=Math.abs(1-o*o),u,d,f,p;if(h>0)if(u=o*l-a,d=o*a-l,p=r*h,u>=0)if(d>=-p)if(d<=p){let y=1/h;u*=y,d*=y,f=u*(u+o*d+2*a)+d*(o*u+d+2*l)+c}else d=r,u=Math.max(0,-(o*d+a)),f=-u*u+d*(d+2*l)+c;else d=-r,u=Math.max(0,-(o*d+a)),f=-u*u+d*(d+2*l)+c;else d<=-p?(u=Math.max(0,-(-o*r+a)),d=u>0?-r:Math.min(Math.max(-r,-l),r),f=-u*u+d*(d+2*l)+c):d<=p?(u=0,d=Math.min(Math.max(-r,-l),r),f=d*(d+2*l)+c):(u=Math.max(0,-(o*r+a)),d=u>0?r:Math.min(Math.max(-r,-l),r),f=-u*u+d*(d+2*l)+c);else d=o>0?-r:r,u=Math.max(0,-(o*d+a)),f=-u*u+d*(d+2*l)+c;return n&&n.copy(this.origin).addScaledVector(this.direction,u),s&&s.copy(ku).addScaledVector(Tl,d),f}intersectSphere(e,t){if(e.radius<0)return null;cs.subVectors(e.center,this.origin);let n=cs.dot(this.direction),s=cs.dot(cs)-n*n,r=e.radius*e.radius;if(s>r)return null;let o=Math.sqrt(r-s),a=n-o,l=n+o;return l<0?null:a<0?this.at(l,t):this.at(a,t)}intersectsSphere(e){return e.radius<0?!1:this.distanceSqToPoint(e.center)<=e.radius*e.radius}distanceToPlane(e){let t=e.normal.dot(this.direction);if(t===0)return e.distanceToPoint(this.origin)===0?0:null;let n=-(this.origin.dot(e.normal)+e.constant)/t;return n>=0?n:null}intersectPlane(e,t){let n=this.distanceToPlane(e);return n===null?null:this.at(n,t)}intersectsPlane(e){let t=e.distanceToPoint(this.origin);return t===0||e.normal.dot(this.direction)*t<0}intersectBox(e,t){let n,s,r,o,a,l,c=1/this.direction.x,h=1/this.direction.y,u=1/this.direction.z,d=this.origin;return c>=0?(n=(e.min.x-d.x)*c,s=(e.max.x-d.x)*c):(n=(e.max.x-d.x)*c,s=(e.min.x-d.x)*c),h>=0?(r=(e.min.y-d.y)*h,o=(e.max.y-d.y)*h):(r=(e.max.y-d.y)*h,o=(e.min.y-d.y)*h),n>o||r>s||((r>n||isNaN(n))&&(n=r),(o<s||isNaN(s))&&(s=o),u>=0?(a=(e.min.z-d.z)*u,l=(e.max.z-d.z)*u):(a=(e.max.z-d.z)*u,l=(e.min.z-d.z)*u),n>l||a>s)||((a>n||n!==n)&&(n=a),(l<s||s!==s)&&(s=l),s<0)?null:this.at(n>=0?n:s,t)}intersectsBox(e){return this.intersectBox(e,cs)!==null}intersectTriangle(e,t,n,s,r){let o=this.origin,a=this.direction,l=a.x,c=a.y,h=a.z,u=e.x-o.x,d=e.y-o.y,f=e.z-o.z,p=t.x-o.x,y=t.y-o.y,m=t.z-o.z,g=n.x-o.x,v=n.y-o.y,A=n.z-o.z,S=Math.abs(l),C=Math.abs(c),T=Math.abs(h),x,E,B,N,D,G,V,I,W,$,z,ce;if(S>=C&&S>=T?(B=l,G=u,W=p,ce=g,l>=0?(x=c,E=h,N=d,D=f,V=y,I=m,$=v,z=A):(x=h,E=c,N=f,D=d,V=m,I=y,$=A,z=v)):C>=T?(B=c,G=d,W=y,ce=v,c>=0?(x=h,E=l,N=f,D=u,V=m,I=p,$=A,z=g):(x=l,E=h,N=u,D=f,V=p,I=m,$=g,z=A)):(B=h,G=f,W=m,ce=A,h>=0?(x=l,E=c,N=u,D=d,V=p,I=y,$=g,z=v):(x=c,E=l,N=d,D=u,V=y,I=p,$=v,z=g)),B===0)return null;let K=x/B,ee=E/B,re=1/B,fe=N-K*G,de=D-ee*G,te=V-K*W,ge=I-ee*W,ve=$-K*ce,Re=z-ee*ce,Me=ve*ge-Re*te,Xe=fe*Re-de*ve,st=te*de-ge*fe;if(s){if(Me<0||Xe<0||st<0)return null}else if((Me<0||Xe<0||st<0)&&(Me>0||Xe>0||st>0))return null;let Ge=Me+Xe+st;if(Ge===0)return null;let ut=re*(Me*G+Xe*W+st*ce);return(Ge>0?ut<0:ut>0)?null:this.at(ut/Ge,r)}applyMatrix4(e){return this.origin.applyMatrix4(e),this.direction.transformDirection(e),this}equals(e){return e.origin.equals(this.origin)&&e.direction.equals(this.direction)}clone(){return new this.constructor().copy(this)}},cr=class extends fs{constructor(e){super(),this.isMeshBasicMaterial=!0,this.type="MeshBasicMaterial",this.color=new gt(16777215),this.map=null,this.lightMap=null,this.lightMapIntensity=1,this.aoMap=null,this.aoMapIntensity=1,this.specularMap=null,this.alphaMap=null,this.envMap=null,this.envMapRotation=new Ns,this.combine=sd,this.reflectivity=1,this.refractionRatio=.98,this.wireframe=!1,this.wireframeLinewidth=1,this.wireframeLinecap="round",this.wireframeLinejoin="round",this.fog=!0,this.setValues(e)}copy(e){return super.copy(e),this.color.copy(e.color),this.map=e.map,this.lightMap=e.lightMap,this.lightMapIntensity=e.lightMapIntensity,this.aoMap=e.aoMap,this.aoMapIntensity=e.aoMapIntensity,this.specularMap=e.specularMap,this.alphaMap=e.alphaMap,this.envMap=e.envMap,this.envMapRotation.copy(e.envMapRotation),this.combine=e.combine,this.reflectivity=e.reflectivity,this.refractionRatio=e.refractionRatio,this.wireframe=e.wireframe,this.wireframeLinewidth=e.wireframeLinewidth,this.wireframeLinecap=e.wireframeLinecap,this.wireframeLinejoin=e.wireframeLinejoin,this.fog=e.fog,this}},Sm=new Ut,rr=new Us,Rl=new Xi,Mm=new F,Cl=new F,Pl=new F,Il=new F,zu=new F,Ll=new F,wm=new F,Dl=new F,dn=class extends Yn{constructor(e=new tn,t=new cr){super(),this.isMesh=!0,this.type="Mesh",this.geometry=e,this.material=t,this.morphTargetDictionary=void 0,this.morphTargetInfluences=void 0,this.count=1,this.updateMorphTargets()}copy(e,t){return super.copy(e,t),e.morphTargetInfluences!==void 0?this.morphTargetInfluences=e.morphTargetInfluences.slice():this.morphTargetInfluences=void 0,e.morphTargetDictionary!==void 0?this.morphTargetDictionary=Object.assign({},e.morphTargetDictionary):this.morphTargetDictionary=void 0,this.material=Array.isArray(e.material)?e.material.slice():e.material,this.geometry=e.geometry,this}updateMorphTargets(){let t=this.geometry.morphAttributes,n=Object.keys(t);if(n.length>0){let s=t[n[0]];if(s!==void 0){this.morphTargetInfluences=[],this.morphTargetDictionary={};for(let r=0,o=s.length;r<o;r++){let a=s[r].name||String(r);this.morphTargetInfluences.push(0),this.morphTargetDictionary[a]=r}}}}getVertexPosition(e,t){let n=this.geometry,s=n.attributes.position,r=n.morphAttributes.position,o=n.morphTargetsRelative;t.fromBufferAttribute(s,e);let a=this.morphTargetInfluences;if(r&&a){Ll.set(0,0,0);for(let l=0,c=r.length;l<c;l++){let h=a[l],u=r[l];h!==0&&(zu.fromBufferAttribute(u,e),o?Ll.addScaledVector(zu,h):Ll.addScaledVector(zu.sub(t),h))}t.add(Ll)}return t}intersectsFrustum(e){return e.intersectsObject(this)}raycast(e,t){let n=this.geometry,s=this.material,r=this.matrixWorld;s!==void 0&&(n.boundingSphere===null&&n.computeBoundingSphere(),Rl.copy(n.boundingSphere),Rl.applyMatrix4(r),rr.copy(e.ray).recast(e.near),!(Rl.containsPoint(rr.origin)===!1&&(rr.intersectSphere(Rl,Mm)===null||rr.origin.distanceToSquared(Mm)>(e.far-e.near)**2))&&(Sm.copy(r).invert(),rr.copy(e.ray).applyMatrix4(Sm),!(n.boundingBox!==null&&rr.intersectsBox(n.boundingBox)===!1)&&this._computeIntersections(e,t,rr)))}_computeIntersections(e,t,n){let s,r=this.geometry,o=this.material,a=r.index,l=r.attributes.position,c=r.attributes.uv,h=r.attributes.uv1,u=r.attributes.normal,d=r.groups,f=r.drawRange;if(a!==null)if(Array.isArray(o))for(let p=0,y=d.length;p<y;p++){let m=d[p],g=o[m.materialIndex],v=Math.max(m.start,f.start),A=Math.min(a.count,Math.min(m.start+m.count,f.start+f.count));for(let S=v,C=A;S<C;S+=3){let T=a.getX(S),x=a.getX(S+1),E=a.getX(S+2);s=Nl(this,g,e,n,c,h,u,T,x,E),s&&(s.faceIndex=Math.floor(S/3),s.face.materialIndex=m.materialIndex,t.push(s))}}else{let p=Math.max(0,f.start),y=Math.min(a.count,f.start+f.count);for(let m=p,g=y;m<g;m+=3){let v=a.getX(m),A=a.getX(m+1),S=a.getX(m+2);s=Nl(this,o,e,n,c,h,u,v,A,S),s&&(s.faceIndex=Math.floor(m/3),t.push(s))}}else if(l!==void 0)if(Array.isArray(o))for(let p=0,y=d.length;p<y;p++){let m=d[p],g=o[m.materialIndex],v=Math.max(m.start,f.start),A=Math.min(l.count,Math.min(m.start+m.count,f.start+f.count));for(let S=v,C=A;S<C;S+=3){let T=S,x=S+1,E=S+2;s=Nl(this,g,e,n,c,h,u,T,x,E),s&&(s.faceIndex=Math.floor(S/3),s.face.materialIndex=m.materialIndex,t.push(s))}}else{let p=Math.max(0,f.start),y=Math.min(l.count,f.start+f.count);for(let m=p,g=y;m<g;m+=3){let v=m,A=m+1,S=m+2;s=Nl(this,o,e,n,c,h,u,v,A,S),s&&(s.faceIndex=Math.floor(m/3),t.push(s))}}}};function Lv(i,e,t,n,s,r,o,a){let l;if(e.side===Wn?l=n.intersectTriangle(o,r,s,!0,a):l=n.intersectTriangle(s,r,o,e.side===qi,a),l===null)return null;Dl.copy(a),Dl.applyMatrix4(i.matrixWorld);let c=t.ray.origin.distanceTo(Dl);return c<t.near||c>t.far?null:{distance:c,point:Dl.clone(),object:i}}function Nl(i,e,t,n,s,r,o,a,l,c){i.getVertexPosition(a,Cl),i.getVertexPosition(l,Pl),i.getVertexPosition(c,Il);let h=Lv(i,e,t,n,Cl,Pl,Il,wm);if(h){let u=new F;Ds.getBarycoord(wm,Cl,Pl,Il,u),s&&(h.uv=Ds.getInterpolatedAttribute(s,a,l,c,u,new ze)),r&&(h.uv1=Ds.getInterpolatedAttribute(r,a,l,c,u,new ze)),o&&(h.normal=Ds.getInterpolatedAttribute(o,a,l,c,u,new F),h.normal.dot(n.direction)>0&&h.normal.multiplyScalar(-1));let d={a,b:l,c,normal:new F,materialIndex:0};Ds.getNormal(Cl,Pl,Il,d.normal),h.face=d,h.barycoord=u}return h}var hr=class extends qn{constructor(e=null,t=1,n=1,s,r,o,a,l,c=An,h=An,u,d){super(null,o,a,l,c,h,s,r,u,d),this.isDataTexture=!0,this.image={data:e,width:t,height:n},this.generateMipmaps=!1,this.flipY=!1,this.unpackAlignment=1}};var or=new Xi,Dv=new ze(.5,.5),Ul=new F,ur=class{constructor(e=new oi,t=new oi,n=new oi,s=new oi,r=new oi,o=new oi){this.planes=[e,t,n,s,r,o]}set(e,t,n,s,r,o){let a=this.planes;return a[0].copy(e),a[1].copy(t),a[2].copy(n),a[3].copy(s),a[4].copy(r),a[5].copy(o),this}copy(e){let t=this.planes;for(let n=0;n<6;n++)t[n].copy(e.planes[n]);return this}setFromProjectionMatrix(e,t=gi,n=!1){let s=this.planes,r=e.elements,o=r[0],a=r[1],l=r[2],c=r[3],h=r[4],u=r[5],d=r[6],f=r[7],p=r[8],y=r[9],m=r[10],g=r[11],v=r[12],A=r[13],S=r[14],C=r[15];if(s[0].setComponents(c-o,f-h,g-p,C-v).normalize(),s[1].setComponents(c+o,f+h,g+p,C+v).normalize(),s[2].setComponents(c+a,f+u,g+y,C+A).normalize(),s[3].setComponents(c-a,f-u,g-y,C-A).normalize(),n)s[4].setComponents(l,d,m,S).normalize(),s[5].setComponents(c-l,f-d,g-m,C-S).normalize();else if(s[4].setComponents(c-l,f-d,g-m,C-S).normalize(),t===gi)s[5].setComponents(c+l,f+d,g+m,C+S).normalize();else if(t===sa)s[5].setComponents(l,d,m,S).normalize();else throw new Error("THREE.Frustum.setFromProjectionMatrix(): Invalid coordinate system: "+t);return this}intersectsObject(e){if(e.boundingSphere!==void 0)e.boundingSphere===null&&e.computeBoundingSphere(),or.copy(e.boundingSphere).applyMatrix4(e.matrixWorld);else{let t=e.geometry;t.boundingSphere===null&&t.computeBoundingSphere(),or.copy(t.boundingSphere).applyMatrix4(e.matrixWorld)}return this.intersectsSphere(or)}intersectsSprite(e){or.center.set(0,0,0);let t=Dv.distanceTo(e.center);return or.radius=.7071067811865476+t,or.applyMatrix4(e.matrixWorld),this.intersectsSphere(or)}intersectsSphere(e){let t=this.planes,n=e.center,s=-e.radius;for(let r=0;r<6;r++)if(t[r].distanceToPoint(n)<s)return!1;return!0}intersectsBox(e){let t=this.planes;for(let n=0;n<6;n++){let s=t[n];if(Ul.x=s.normal.x>0?e.max.x:e.min.x,Ul.y=s.normal.y>0?e.max.y:e.min.y,Ul.z=s.normal.z>0?e.max.z:e.min.z,s.distanceToPoint(Ul)<0)return!1}return!0}containsPoint(e){let t=this.planes;for(let n=0;n<6;n++)if(t[n].distanceToPoint(e)<0)return!1;return!0}clone(){return new this.constructor().copy(this)}},Em=new Ut,sc=class i{constructor(){this.coordinateSystem=gi,this._frustums=[],this._count=0}setFromArrayCamera(e){let t=e.cameras,n=this._frustums;for(let s=0;s<t.length;s++){let r=t[s];Em.multiplyMatrices(r.projectionMatrix,r.matrixWorldInverse),n[s]===void 0&&(n[s]=new ur),n[s].setFromProjectionMatrix(Em,r.coordinateSystem,r.reversedDepth)}return this._count=t.length,this}getFrustum(e){return this._frustums[e]}intersectsObject(e){let t=this._frustums;for(let n=0;n<this._count;n++)if(t[n].intersectsObject(e))return!0;return!1}intersectsSprite(e){let t=this._frustums;for(let n=0;n<this._count;n++)if(t[n].intersectsSprite(e))return!0;return!1}intersectsSphere(e){let t=this._frustums;for(let n=0;n<this._count;n++)if(t[n].intersectsSphere(e))return!0;return!1}intersectsBox(e){let t=this._frustums;for(let n=0;n<this._count;n++)if(t[n].intersectsBox(e))return!0;return!1}containsPoint(e){let t=this._frustums;for(let n=0;n<this._count;n++)if(t[n].containsPoint(e))return!0;return!1}copy(e){this.coordinateSystem=e.coordinateSystem;let t=this._frustums,n=e._frustums;for(let s=0;s<e._count;s++)t[s]===void 0&&(t[s]=new ur),t[s].copy(n[s]);return this._count=e._count,this}clone(){return new i().copy(this)}};var dr=class extends fs{constructor(e){super(),this.isLineBasicMaterial=!0,this.type="LineBasicMaterial",this.color=new gt(16777215),this.map=null,this.linewidth=1,this.linecap="round",this.linejoin="round",this.fog=!0,this.setValues(e)}copy(e){return super.copy(e),this.color.copy(e.color),this.map=e.map,this.linewidth=e.linewidth,this.linecap=e.linecap,this.linejoin=e.linejoin,this.fog=e.fog,this}},rc=new F,oc=new F,Tm=new Ut,Ko=new Us,Ol=new Xi,Hu=new F,Am=new F,fr=class extends Yn{constructor(e=new tn,t=new dr){super(),this.isLine=!0,this.type="Line",this.geometry=e,this.material=t,this.morphTargetDictionary=void 0,this.morphTargetInfluences=void 0,this.updateMorphTargets()}copy(e,t){return super.copy(e,t),e.morphTargetInfluences!==void 0?this.morphTargetInfluences=e.morphTargetInfluences.slice():this.morphTargetInfluences=void 0,e.morphTargetDictionary!==void 0?this.morphTargetDictionary=Object.assign({},e.morphTargetDictionary):this.morphTargetDictionary=void 0,this.material=Array.isArray(e.material)?e.material.slice():e.material,this.geometry=e.geometry,this}computeLineDistances(){let e=this.geometry;if(e.index===null){let t=e.attributes.position,n=[0];for(let s=1,r=t.count;s<r;s++)rc.fromBufferAttribute(t,s-1),oc.fromBufferAttribute(t,s),n[s]=n[s-1],n[s]+=rc.distanceTo(oc);e.setAttribute("lineDistance",new un(n,1))}else $e("Line.computeLineDistances(): Computation only possible with non-indexed BufferGeometry.");return this}intersectsFrustum(e){return e.intersectsObject(this)}raycast(e,t){let n=this.geometry,s=this.matrixWorld,r=e.params.Line.threshold,o=n.drawRange;if(n.boundingSphere===null&&n.computeBoundingSphere(),Ol.copy(n.boundingSphere),Ol.applyMatrix4(s),Ol.radius+=r,e.ray.intersectsSphere(Ol)===!1)return;Tm.copy(s).invert(),Ko.copy(e.ray).applyMatrix4(Tm);let a=r/((this.scale.x+this.scale.y+this.scale.z)/3),l=a*a,c=this.isLineSegments?2:1,h=n.index,d=n.attributes.position;if(h!==null){let f=Math.max(0,o.start),p=Math.min(h.count,o.start+o.count);for(let y=f,m=p-1;y<m;y+=c){let g=h.getX(y),v=h.getX(y+1),A=Fl(this,e,Ko,l,g,v,y);A&&t.push(A)}if(this.isLineLoop){let y=h.getX(p-1),m=h.getX(f),g=Fl(this,e,Ko,l,y,m,p-1);g&&t.push(g)}}else{let f=Math.max(0,o.start),p=Math.min(d.count,o.start+o.count);for(let y=f,m=p-1;y<m;y+=c){let g=Fl(this,e,Ko,l,y,y+1,y);g&&t.push(g)}if(this.isLineLoop){let y=Fl(this,e,Ko,l,p-1,f,p-1);y&&t.push(y)}}}updateMorphTargets(){let t=this.geometry.morphAttributes,n=Object.keys(t);if(n.length>0){let s=t[n[0]];if(s!==void 0){this.morphTargetInfluences=[],this.morphTargetDictionary={};for(let r=0,o=s.length;r<o;r++){let a=s[r].name||String(r);this.morphTargetInfluences.push(0),this.morphTargetDictionary[a]=r}}}}};function Fl(i,e,t,n,s,r,o){let a=i.geometry.attributes.position;if(rc.fromBufferAttribute(a,s),oc.fromBufferAttribute(a,r),t.distanceSqToSegment(rc,oc,Hu,Am)>n)return;Hu.applyMatrix4(i.matrixWorld);let c=e.ray.origin.distanceTo(Hu);if(!(c<e.near||c>e.far))return{distance:c,point:Am.clone().applyMatrix4(i.matrixWorld),index:o,face:null,faceIndex:null,barycoord:null,object:i}}var Rm=new F,Cm=new F,ha=class extends fr{constructor(e,t){super(e,t),this.isLineSegments=!0,this.type="LineSegments"}computeLineDistances(){let e=this.geometry;if(e.index===null){let t=e.attributes.position,n=[];for(let s=0,r=t.count;s<r;s+=2)Rm.fromBufferAttribute(t,s),Cm.fromBufferAttribute(t,s+1),n[s]=s===0?0:n[s-1],n[s+1]=n[s]+Rm.distanceTo(Cm);e.setAttribute("lineDistance",new un(n,1))}else $e("LineSegments.computeLineDistances(): Computation only possible with non-indexed BufferGeometry.");return this}},ua=class extends fr{constructor(e,t){super(e,t),this.isLineLoop=!0,this.type="LineLoop"}},ac=class extends fs{constructor(e){super(),this.isPointsMaterial=!0,this.type="PointsMaterial",this.color=new gt(16777215),this.map=null,this.alphaMap=null,this.size=1,this.sizeAttenuation=!0,this.fog=!0,this.setValues(e)}copy(e){return super.copy(e),this.color.copy(e.color),this.map=e.map,this.alphaMap=e.alphaMap,this.size=e.size,this.sizeAttenuation=e.sizeAttenuation,this.fog=e.fog,this}},Pm=new Ut,Zu=new Us,Bl=new Xi,kl=new F,da=class extends Yn{constructor(e=new tn,t=new ac){super(),this.isPoints=!0,this.type="Points",this.geometry=e,this.material=t,this.morphTargetDictionary=void 0,this.morphTargetInfluences=void 0,this.updateMorphTargets()}copy(e,t){return super.copy(e,t),e.morphTargetInfluences!==void 0?this.morphTargetInfluences=e.morphTargetInfluences.slice():this.morphTargetInfluences=void 0,e.morphTargetDictionary!==void 0?this.morphTargetDictionary=Object.assign({},e.morphTargetDictionary):this.morphTargetDictionary=void 0,this.material=Array.isArray(e.material)?e.material.slice():e.material,this.geometry=e.geometry,this}intersectsFrustum(e){return e.intersectsObject(this)}raycast(e,t){let n=this.geometry,s=this.matrixWorld,r=e.params.Points.threshold,o=n.drawRange;if(n.boundingSphere===null&&n.computeBoundingSphere(),Bl.copy(n.boundingSphere),Bl.applyMatrix4(s),Bl.radius+=r,e.ray.intersectsSphere(Bl)===!1)return;Pm.copy(s).invert(),Zu.copy(e.ray).applyMatrix4(Pm);let a=r/((this.scale.x+this.scale.y+this.scale.z)/3),l=a*a,c=n.index,u=n.attributes.position;if(c!==null){let d=Math.max(0,o.start),f=Math.min(c.count,o.start+o.count);for(let p=d,y=f;p<y;p++){let m=c.getX(p);kl.fromBufferAttribute(u,m),Im(kl,m,l,s,e,t,this)}}else{let d=Math.max(0,o.start),f=Math.min(u.count,o.start+o.count);for(let p=d,y=f;p<y;p++)kl.fromBufferAttribute(u,p),Im(kl,p,l,s,e,t,this)}}updateMorphTargets(){let t=this.geometry.morphAttributes,n=Object.keys(t);if(n.length>0){let s=t[n[0]];if(s!==void 0){this.morphTargetInfluences=[],this.morphTargetDictionary={};for(let r=0,o=s.length;r<o;r++){let a=s[r].name||String(r);this.morphTargetInfluences.push(0),this.morphTargetDictionary[a]=r}}}}};function Im(i,e,t,n,s,r,o){let a=Zu.distanceSqToPoint(i);if(a<t){let l=new F;Zu.closestPointToPoint(i,l),l.applyMatrix4(n);let c=s.ray.origin.distanceTo(l);if(c<s.near||c>s.far)return;r.push({distance:c,distanceToRay:Math.sqrt(a),point:l,index:e,face:null,faceIndex:null,barycoord:null,object:o})}}var fa=class extends qn{constructor(e=[],t=_r,n,s,r,o,a,l,c,h){super(e,t,n,s,r,o,a,l,c,h),this.isCubeTexture=!0,this.flipY=!1}get images(){return this.image}set images(e){this.image=e}};var Pi=class extends qn{constructor(e,t,n=hi,s,r,o,a=An,l=An,c,h=us,u=1){if(h!==us&&h!==ms)throw new Error("THREE.DepthTexture: format must be either THREE.DepthFormat or THREE.DepthStencilFormat");let d={width:e,height:t,depth:u};super(d,s,r,o,a,l,h,n,c),this.isDepthTexture=!0,this.flipY=!1,this.generateMipmaps=!1,this.compareFunction=null}copy(e){return super.copy(e),this.source=new lo(Object.assign({},e.image)),this.compareFunction=e.compareFunction,this}toJSON(e){let t=super.toJSON(e);return t.compareFunction=this.compareFunction,t}},pa=class extends Pi{constructor(e,t=hi,n=_r,s,r,o=An,a=An,l,c=us){let h={width:e,height:e,depth:1},u=[h,h,h,h,h,h];super(e,e,t,n,s,r,o,a,l,c),this.image=u,this.isCubeDepthTexture=!0,this.isCubeTexture=!0}get images(){return this.image}set images(e){this.image=e}},ma=class extends qn{constructor(e=null){super(),this.sourceTexture=e,this.isExternalTexture=!0}copy(e){return super.copy(e),this.sourceTexture=e.sourceTexture,this}},ho=class i extends tn{constructor(e=1,t=1,n=1,s=1,r=1,o=1){super(),this.type="BoxGeometry",this.parameters={width:e,height:t,depth:n,widthSegments:s,heightSegments:r,depthSegments:o};let a=this;s=Math.floor(s),r=Math.floor(r),o=Math.floor(o);let l=[],c=[],h=[],u=[],d=0,f=0;p("z","y","x",-1,-1,n,t,e,o,r,0),p("z","y","x",1,-1,n,t,-e,o,r,1),p("x","z","y",1,1,e,n,t,s,o,2),p("x","z","y",1,-1,e,n,-t,s,o,3),p("x","y","z",1,-1,e,t,n,s,r,4),p("x","y","z",-1,-1,e,t,-n,s,r,5),this.setIndex(l),this.setAttribute("position",new un(c,3)),this.setAttribute("normal",new un(h,3)),this.setAttribute("uv",new un(u,2));function p(y,m,g,v,A,S,C,T,x,E,B){let N=S/x,D=C/E,G=S/2,V=C/2,I=T/2,W=x+1,$=E+1,z=0,ce=0,K=new F;for(let ee=0;ee<$;ee++){let re=ee*D-V;for(let fe=0;fe<W;fe++){let de=fe*N-G;K[y]=de*v,K[m]=re*A,K[g]=I,c.push(K.x,K.y,K.z),K[y]=0,K[m]=0,K[g]=T>0?1:-1,h.push(K.x,K.y,K.z),u.push(fe/x),u.push(1-ee/E),z+=1}}for(let ee=0;ee<E;ee++)for(let re=0;re<x;re++){let fe=d+re+W*ee,de=d+re+W*(ee+1),te=d+(re+1)+W*(ee+1),ge=d+(re+1)+W*ee;l.push(fe,de,ge),l.push(de,te,ge),ce+=6}a.addGroup(f,ce,B),f+=ce,d+=z}}copy(e){return super.copy(e),this.parameters=Object.assign({},e.parameters),this}static fromJSON(e){return new i(e.width,e.height,e.depth,e.widthSegments,e.heightSegments,e.depthSegments)}};var _i=class{constructor(){this.type="Curve",this.arcLengthDivisions=200,this.needsUpdate=!1,this.cacheArcLengths=null}getPoint(){$e("Curve: .getPoint() not implemented.")}getPointAt(e,t){let n=this.getUtoTmapping(e);return this.getPoint(n,t)}getPoints(e=5){let t=[];for(let n=0;n<=e;n++)t.push(this.getPoint(n/e));return t}getSpacedPoints(e=5){let t=[];for(let n=0;n<=e;n++)t.push(this.getPointAt(n/e));return t}getLength(){let e=this.getLengths();return e[e.length-1]}getLengths(e=this.arcLengthDivisions){if(this.cacheArcLengths&&this.cacheArcLengths.length===e+1&&!this.needsUpdate)return this.cacheArcLengths;this.needsUpdate=!1;let t=[],n,s=this.getPoint(0),r=0;t.push(0);for(let o=1;o<=e;o++)n=this.getPoint(o/e),r+=n.distanceTo(s),t.push(r),s=n;return this.cacheArcLengths=t,t}updateArcLengths(){this.needsUpdate=!0,this.getLengths()}getUtoTmapping(e,t=null){let n=this.getLengths(),s=0,r=n.length,o;t?o=t:o=e*n[r-1];let a=0,l=r-1,c;for(;a<=l;)if(s=Math.floor(a+(l-a)/2),c=n[s]-o,c<0)a=s+1;else if(c>0)l=s-1;else{l=s;break}if(s=l,n[s]===o)return s/(r-1);let h=n[s],d=n[s+1]-h,f=(o-h)/d;return(s+f)/(r-1)}getTangent(e,t){let s=e-1e-4,r=e+1e-4;s<0&&(s=0),r>1&&(r=1);let o=this.getPoint(s),a=this.getPoint(r),l=t||(o.isVector2?new ze:new F);return l.copy(a).sub(o).normalize(),l}getTangentAt(e,t){let n=this.getUtoTmapping(e);return this.getTangent(n,t)}computeFrenetFrames(e,t=!1){let n=new F,s=[],r=[],o=[],a=new F,l=new Ut;for(let f=0;f<=e;f++){let p=f/e;s[f]=this.getTangentAt(p,new F)}r[0]=new F,o[0]=new F;let c=Number.MAX_VALUE,h=Math.abs(s[0].x),u=Math.abs(s[0].y),d=Math.abs(s[0].z);h<=c&&(c=h,n.set(1,0,0)),u<=c&&(c=u,n.set(0,1,0)),d<=c&&n.set(0,0,1),a.crossVectors(s[0],n).normalize(),r[0].crossVectors(s[0],a),o[0].crossVectors(s[0],r[0]);for(let f=1;f<=e;f++){if(r[f]=r[f-1].clone(),o[f]=o[f-1].clone(),a.crossVectors(s[f-1],s[f]),a.length()>Number.EPSILON){a.normalize();let p=Math.acos(ct(s[f-1].dot(s[f]),-1,1));r[f].applyMatrix4(l.makeRotationAxis(a,p))}o[f].crossVectors(s[f],r[f])}if(t===!0){let f=Math.acos(ct(r[0].dot(r[e]),-1,1));f/=e,s[0].dot(a.crossVectors(r[0],r[e]))>0&&(f=-f);for(let p=1;p<=e;p++)r[p].applyMatrix4(l.makeRotationAxis(s[p],f*p)),o[p].crossVectors(s[p],r[p])}return{tangents:s,normals:r,binormals:o}}clone(){return new this.constructor().copy(this)}copy(e){return this.arcLengthDivisions=e.arcLengthDivisions,this.cacheArcLengths=null,this}toJSON(){let e={metadata:{version:4.7,type:"Curve",generator:"Curve.toJSON"}};return e.arcLengthDivisions=this.arcLengthDivisions,e.type=this.type,e}fromJSON(e){return this.arcLengthDivisions=e.arcLengthDivisions,this.cacheArcLengths=null,this}},ga=class extends _i{constructor(e=0,t=0,n=1,s=1,r=0,o=Math.PI*2,a=!1,l=0){super(),this.isEllipseCurve=!0,this.type="EllipseCurve",this.aX=e,this.aY=t,this.xRadius=n,this.yRadius=s,this.aStartAngle=r,this.aEndAngle=o,this.aClockwise=a,this.aRotation=l}getPoint(e,t=new ze){let n=t,s=Math.PI*2,r=this.aEndAngle-this.aStartAngle,o=Math.abs(r)<Number.EPSILON;for(;r<0;)r+=s;for(;r>s;)r-=s;r<Number.EPSILON&&(o?r=0:r=s),this.aClockwise===!0&&!o&&(r===s?r=-s:r=r-s);let a=this.aStartAngle+e*r,l=this.aX+this.xRadius*Math.cos(a),c=this.aY+this.yRadius*Math.sin(a);if(this.aRotation!==0){let h=Math.cos(this.aRotation),u=Math.sin(this.aRotation),d=l-this.aX,f=c-this.aY;l=d*h-f*u+this.aX,c=d*u+f*h+this.aY}return n.set(l,c)}copy(e){return super.copy(e),this.aX=e.aX,this.aY=e.aY,this.xRadius=e.xRadius,this.yRadius=e.yRadius,this.aStartAngle=e.aStartAngle,this.aEndAngle=e.aEndAngle,this.aClockwise=e.aClockwise,this.aRotation=e.aRotation,this}toJSON(){let e=super.toJSON();return e.aX=this.aX,e.aY=this.aY,e.xRadius=this.xRadius,e.yRadius=this.yRadius,e.aStartAngle=this.aStartAngle,e.aEndAngle=this.aEndAngle,e.aClockwise=this.aClockwise,e.aRotation=this.aRotation,e}fromJSON(e){return super.fromJSON(e),this.aX=e.aX,this.aY=e.aY,this.xRadius=e.xRadius,this.yRadius=e.yRadius,this.aStartAngle=e.aStartAngle,this.aEndAngle=e.aEndAngle,this.aClockwise=e.aClockwise,this.aRotation=e.aRotation,this}},lc=class extends ga{constructor(e,t,n,s,r,o){super(e,t,n,n,s,r,o),this.isArcCurve=!0,this.type="ArcCurve"}};function Rd(){let i=0,e=0,t=0,n=0;function s(r,o,a,l){i=r,e=a,t=-3*r+3*o-2*a-l,n=2*r-2*o+a+l}return{initCatmullRom:function(r,o,a,l,c){s(o,a,c*(a-r),c*(l-o))},initNonuniformCatmullRom:function(r,o,a,l,c,h,u){let d=(o-r)/c-(a-r)/(c+h)+(a-o)/h,f=(a-o)/h-(l-o)/(h+u)+(l-a)/u;d*=h,f*=h,s(o,a,d,f)},calc:function(r){let o=r*r,a=o*r;return i+e*r+t*o+n*a}}}var Lm=new F,Dm=new F,Vu=new Rd,Gu=new Rd,Wu=new Rd,uo=class extends _i{constructor(e=[],t=!1,n="centripetal",s=.5){super(),this.isCatmullRomCurve3=!0,this.type="CatmullRomCurve3",this.points=e,this.closed=t,this.curveType=n,this.tension=s}getPoint(e,t=new F){let n=t,s=this.points,r=s.length,o=(r-(this.closed?0:1))*e,a=Math.floor(o),l=o-a;this.closed?a+=a>0?0:(Math.floor(Math.abs(a)/r)+1)*r:l===0&&a===r-1&&(a=r-2,l=1);let c,h;this.closed||a>0?c=s[(a-1)%r]:(Dm.subVectors(s[0],s[1]).add(s[0]),c=Dm);let u=s[a%r],d=s[(a+1)%r];if(this.closed||a+2<r?h=s[(a+2)%r]:(Lm.subVectors(s[r-1],s[r-2]).add(s[r-1]),h=Lm),this.curveType==="centripetal"||this.curveType==="chordal"){let f=this.curveType==="chordal"?.5:.25,p=Math.pow(c.distanceToSquared(u),f),y=Math.pow(u.distanceToSquared(d),f),m=Math.pow(d.distanceToSquared(h),f);y<1e-4&&(y=1),p<1e-4&&(p=y),m<1e-4&&(m=y),Vu.initNonuniformCatmullRom(c.x,u.x,d.x,h.x,p,y,m),Gu.initNonuniformCatmullRom(c.y,u.y,d.y,h.y,p,y,m),Wu.initNonuniformCatmullRom(c.z,u.z,d.z,h.z,p,y,m)}else this.curveType==="catmullrom"&&(Vu.initCatmullRom(c.x,u.x,d.x,h.x,this.tension),Gu.initCatmullRom(c.y,u.y,d.y,h.y,this.tension),Wu.initCatmullRom(c.z,u.z,d.z,h.z,this.tension));return n.set(Vu.calc(l),Gu.calc(l),Wu.calc(l)),n}copy(e){super.copy(e),this.points=[];for(let t=0,n=e.points.length;t<n;t++){let s=e.points[t];this.points.push(s.clone())}return this.closed=e.closed,this.curveType=e.curveType,this.tension=e.tension,this}toJSON(){let e=super.toJSON();e.points=[];for(let t=0,n=this.points.length;t<n;t++){let s=this.points[t];e.points.push(s.toArray())}return e.closed=this.closed,e.curveType=this.curveType,e.tension=this.tension,e}fromJSON(e){super.fromJSON(e),this.points=[];for(let t=0,n=e.points.length;t<n;t++){let s=e.points[t];this.points.push(new F().fromArray(s))}return this.closed=e.closed,this.curveType=e.curveType,this.tension=e.tension,this}};function Nm(i,e,t,n,s){let r=(n-e)*.5,o=(s-t)*.5,a=i*i,l=i*a;return(2*t-2*n+r+o)*l+(-3*t+3*n-2*r-o)*a+r*i+t}function Nv(i,e){let t=1-i;return t*t*e}function Uv(i,e){return 2*(1-i)*i*e}function Ov(i,e){return i*i*e}function ea(i,e,t,n){return Nv(i,e)+Uv(i,t)+Ov(i,n)}function Fv(i,e){let t=1-i;return t*t*t*e}function Bv(i,e){let t=1-i;return 3*t*t*i*e}function kv(i,e){return 3*(1-i)*i*i*e}function zv(i,e){return i*i*i*e}function ta(i,e,t,n,s){return Fv(i,e)+Bv(i,t)+kv(i,n)+zv(i,s)}var cc=class extends _i{constructor(e=new ze,t=new ze,n=new ze,s=new ze){super(),this.isCubicBezierCurve=!0,this.type="CubicBezierCurve",this.v0=e,this.v1=t,this.v2=n,this.v3=s}getPoint(e,t=new ze){let n=t,s=this.v0,r=this.v1,o=this.v2,a=this.v3;return n.set(ta(e,s.x,r.x,o.x,a.x),ta(e,s.y,r.y,o.y,a.y)),n}copy(e){return super.copy(e),this.v0.copy(e.v0),this.v1.copy(e.v1),this.v2.copy(e.v2),this.v3.copy(e.v3),this}toJSON(){let e=super.toJSON();return e.v0=this.v0.toArray(),e.v1=this.v1.toArray(),e.v2=this.v2.toArray(),e.v3=this.v3.toArray(),e}fromJSON(e){return super.fromJSON(e),this.v0.fromArray(e.v0),this.v1.fromArray(e.v1),this.v2.fromArray(e.v2),this.v3.fromArray(e.v3),this}},hc=class extends _i{constructor(e=new F,t=new F,n=new F,s=new F){super(),this.isCubicBezierCurve3=!0,this.type="CubicBezierCurve3",this.v0=e,this.v1=t,this.v2=n,this.v3=s}getPoint(e,t=new F){let n=t,s=this.v0,r=this.v1,o=this.v2,a=this.v3;return n.set(ta(e,s.x,r.x,o.x,a.x),ta(e,s.y,r.y,o.y,a.y),ta(e,s.z,r.z,o.z,a.z)),n}copy(e){return super.copy(e),this.v0.copy(e.v0),this.v1.copy(e.v1),this.v2.copy(e.v2),this.v3.copy(e.v3),this}toJSON(){let e=super.toJSON();return e.v0=this.v0.toArray(),e.v1=this.v1.toArray(),e.v2=this.v2.toArray(),e.v3=this.v3.toArray(),e}fromJSON(e){return super.fromJSON(e),this.v0.fromArray(e.v0),this.v1.fromArray(e.v1),this.v2.fromArray(e.v2),this.v3.fromArray(e.v3),this}},uc=class extends _i{constructor(e=new ze,t=new ze){super(),this.isLineCurve=!0,this.type="LineCurve",this.v1=e,this.v2=t}getPoint(e,t=new ze){let n=t;return e===1?n.copy(this.v2):(n.copy(this.v2).sub(this.v1),n.multiplyScalar(e).add(this.v1)),n}getPointAt(e,t){return this.getPoint(e,t)}getTangent(e,t=new ze){return t.subVectors(this.v2,this.v1).normalize()}getTangentAt(e,t){return this.getTangent(e,t)}copy(e){return super.copy(e),this.v1.copy(e.v1),this.v2.copy(e.v2),this}toJSON(){let e=super.toJSON();return e.v1=this.v1.toArray(),e.v2=this.v2.toArray(),e}fromJSON(e){return super.fromJSON(e),this.v1.fromArray(e.v1),this.v2.fromArray(e.v2),this}},dc=class extends _i{constructor(e=new F,t=new F){super(),this.isLineCurve3=!0,this.type="LineCurve3",this.v1=e,this.v2=t}getPoint(e,t=new F){let n=t;return e===1?n.copy(this.v2):(n.copy(this.v2).sub(this.v1),n.multiplyScalar(e).add(this.v1)),n}getPointAt(e,t){return this.getPoint(e,t)}getTangent(e,t=new F){return t.subVectors(this.v2,this.v1).normalize()}getTangentAt(e,t){return this.getTangent(e,t)}copy(e){return super.copy(e),this.v1.copy(e.v1),this.v2.copy(e.v2),this}toJSON(){let e=super.toJSON();return e.v1=this.v1.toArray(),e.v2=this.v2.toArray(),e}fromJSON(e){return super.fromJSON(e),this.v1.fromArray(e.v1),this.v2.fromArray(e.v2),this}},fc=class extends _i{constructor(e=new ze,t=new ze,n=new ze){super(),this.isQuadraticBezierCurve=!0,this.type="QuadraticBezierCurve",this.v0=e,this.v1=t,this.v2=n}getPoint(e,t=new ze){let n=t,s=this.v0,r=this.v1,o=this.v2;return n.set(ea(e,s.x,r.x,o.x),ea(e,s.y,r.y,o.y)),n}copy(e){return super.copy(e),this.v0.copy(e.v0),this.v1.copy(e.v1),this.v2.copy(e.v2),this}toJSON(){let e=super.toJSON();return e.v0=this.v0.toArray(),e.v1=this.v1.toArray(),e.v2=this.v2.toArray(),e}fromJSON(e){return super.fromJSON(e),this.v0.fromArray(e.v0),this.v1.fromArray(e.v1),this.v2.fromArray(e.v2),this}},_a=class extends _i{constructor(e=new F,t=new F,n=new F){super(),this.isQuadraticBezierCurve3=!0,this.type="QuadraticBezierCurve3",this.v0=e,this.v1=t,this.v2=n}getPoint(e,t=new F){let n=t,s=this.v0,r=this.v1,o=this.v2;return n.set(ea(e,s.x,r.x,o.x),ea(e,s.y,r.y,o.y),ea(e,s.z,r.z,o.z)),n}copy(e){return super.copy(e),this.v0.copy(e.v0),this.v1.copy(e.v1),this.v2.copy(e.v2),this}toJSON(){let e=super.toJSON();return e.v0=this.v0.toArray(),e.v1=this.v1.toArray(),e.v2=this.v2.toArray(),e}fromJSON(e){return super.fromJSON(e),this.v0.fromArray(e.v0),this.v1.fromArray(e.v1),this.v2.fromArray(e.v2),this}},pc=class extends _i{constructor(e=[]){super(),this.isSplineCurve=!0,this.type="SplineCurve",this.points=e}getPoint(e,t=new ze){let n=t,s=this.points,r=(s.length-1)*e,o=Math.floor(r),a=r-o,l=s[o===0?o:o-1],c=s[o],h=s[o>s.length-2?s.length-1:o+1],u=s[o>s.length-3?s.length-1:o+2];return n.set(Nm(a,l.x,c.x,h.x,u.x),Nm(a,l.y,c.y,h.y,u.y)),n}copy(e){super.copy(e),this.points=[];for(let t=0,n=e.points.length;t<n;t++){let s=e.points[t];this.points.push(s.clone())}return this}toJSON(){let e=super.toJSON();e.points=[];for(let t=0,n=this.points.length;t<n;t++){let s=this.points[t];e.points.push(s.toArray())}return e}fromJSON(e){super.fromJSON(e),this.points=[];for(let t=0,n=e.points.length;t<n;t++){let s=e.points[t];this.points.push(new ze().fromArray(s))}return this}},Hv=Object.freeze({__proto__:null,ArcCurve:lc,CatmullRomCurve3:uo,CubicBezierCurve:cc,CubicBezierCurve3:hc,EllipseCurve:ga,LineCurve:uc,LineCurve3:dc,QuadraticBezierCurve:fc,QuadraticBezierCurve3:_a,SplineCurve:pc});var xa=class i extends tn{constructor(e=1,t=1,n=1,s=1){super(),this.type="PlaneGeometry",this.parameters={width:e,height:t,widthSegments:n,heightSegments:s};let r=e/2,o=t/2,a=Math.floor(n),l=Math.floor(s),c=a+1,h=l+1,u=e/a,d=t/l,f=[],p=[],y=[],m=[];for(let g=0;g<h;g++){let v=g*d-o;for(let A=0;A<c;A++){let S=A*u-r;p.push(S,-v,0),y.push(0,0,1),m.push(A/a),m.push(1-g/l)}}for(let g=0;g<l;g++)for(let v=0;v<a;v++){let A=v+c*g,S=v+c*(g+1),C=v+1+c*(g+1),T=v+1+c*g;f.push(A,S,T),f.push(S,C,T)}this.setIndex(f),this.setAttribute("position",new un(p,3)),this.setAttribute("normal",new un(y,3)),this.setAttribute("uv",new un(m,2))}copy(e){return super.copy(e),this.parameters=Object.assign({},e.parameters),this}static fromJSON(e){return new i(e.width,e.height,e.widthSegments,e.heightSegments)}};var fo=class i extends tn{constructor(e=1,t=32,n=16,s=0,r=Math.PI*2,o=0,a=Math.PI){super(),this.type="SphereGeometry",this.parameters={radius:e,widthSegments:t,heightSegments:n,phiStart:s,phiLength:r,thetaStart:o,thetaLength:a},t=Math.max(3,Math.floor(t)),n=Math.max(2,Math.floor(n));let l=Math.min(o+a,Math.PI),c=0,h=[],u=new F,d=new F,f=[],p=[],y=[],m=[];for(let g=0;g<=n;g++){let v=[],A=g/n,S=o+A*a,C=e*Math.cos(S),T=Math.sqrt(e*e-C*C),x=0;g===0&&o===0?x=.5/t:g===n&&l===Math.PI&&(x=-.5/t);for(let E=0;E<=t;E++){let B=E/t,N=s+B*r;u.x=-T*Math.cos(N),u.y=C,u.z=T*Math.sin(N),p.push(u.x,u.y,u.z),d.copy(u).normalize(),y.push(d.x,d.y,d.z),m.push(B+x,1-A),v.push(c++)}h.push(v)}for(let g=0;g<n;g++)for(let v=0;v<t;v++){let A=h[g][v+1],S=h[g][v],C=h[g+1][v],T=h[g+1][v+1];(g!==0||o>0)&&f.push(A,S,T),(g!==n-1||l<Math.PI)&&f.push(S,C,T)}this.setIndex(f),this.setAttribute("position",new un(p,3)),this.setAttribute("normal",new un(y,3)),this.setAttribute("uv",new un(m,2))}copy(e){return super.copy(e),this.parameters=Object.assign({},e.parameters),this}static fromJSON(e){return new i(e.radius,e.widthSegments,e.heightSegments,e.phiStart,e.phiLength,e.thetaStart,e.thetaLength)}};var va=class i extends tn{constructor(e=new _a(new F(-1,-1,0),new F(-1,1,0),new F(1,1,0)),t=64,n=1,s=8,r=!1){super(),this.type="TubeGeometry",this.parameters={path:e,tubularSegments:t,radius:n,radialSegments:s,closed:r};let o=e.computeFrenetFrames(t,r);this.tangents=o.tangents,this.normals=o.normals,this.binormals=o.binormals;let a=new F,l=new F,c=new ze,h=new F,u=[],d=[],f=[],p=[];y(),this.setIndex(p),this.setAttribute("position",new un(u,3)),this.setAttribute("normal",new un(d,3)),this.setAttribute("uv",new un(f,2));function y(){for(let A=0;A<t;A++)m(A);m(r===!1?t:0),v(),g()}function m(A){h=e.getPointAt(A/t,h);let S=o.normals[A],C=o.binormals[A];for(let T=0;T<=s;T++){let x=T/s*Math.PI*2,E=Math.sin(x),B=-Math.cos(x);l.x=B*S.x+E*C.x,l.y=B*S.y+E*C.y,l.z=B*S.z+E*C.z,l.normalize(),d.push(l.x,l.y,l.z),a.x=h.x+n*l.x,a.y=h.y+n*l.y,a.z=h.z+n*l.z,u.push(a.x,a.y,a.z)}}function g(){for(let A=1;A<=t;A++)for(let S=1;S<=s;S++){let C=(s+1)*(A-1)+(S-1),T=(s+1)*A+(S-1),x=(s+1)*A+S,E=(s+1)*(A-1)+S;p.push(C,T,E),p.push(T,x,E)}}function v(){for(let A=0;A<=t;A++)for(let S=0;S<=s;S++)c.x=A/t,c.y=S/s,f.push(c.x,c.y)}}copy(e){return super.copy(e),this.parameters=Object.assign({},e.parameters),this}toJSON(){let e=super.toJSON();return e.path=this.parameters.path.toJSON(),e}static fromJSON(e){return new i(new Hv[e.path.type]().fromJSON(e.path),e.tubularSegments,e.radius,e.radialSegments,e.closed)}};function vr(i){let e={};for(let t in i){e[t]={};for(let n in i[t]){let s=i[t][n];if(Um(s))s.isRenderTargetTexture?($e("UniformsUtils: Textures of render targets cannot be cloned via cloneUniforms() or mergeUniforms()."),e[t][n]=null):e[t][n]=s.clone();else if(Array.isArray(s))if(Um(s[0])){let r=[];for(let o=0,a=s.length;o<a;o++)r[o]=s[o].clone();e[t][n]=r}else e[t][n]=s.slice();else e[t][n]=s}}return e}function Nn(i){let e={};for(let t=0;t<i.length;t++){let n=vr(i[t]);for(let s in n)e[s]=n[s]}return e}function Um(i){return i&&(i.isColor||i.isMatrix3||i.isMatrix4||i.isVector2||i.isVector3||i.isVector4||i.isTexture||i.isQuaternion)}function Vv(i){let e=[];for(let t=0;t<i.length;t++)e.push(i[t].clone());return e}function Cd(i){let e=i.getRenderTarget();return e===null?i.outputColorSpace:e.isXRRenderTarget===!0?e.texture.colorSpace:pt.workingColorSpace}var Tg={clone:vr,merge:Nn},Gv=`void main() {
	gl_Position = projectionMatrix * modelViewMatrix * vec4( position, 1.0 );
}`,Wv=`void main() {
	gl_FragColor = vec4( 1.0, 0.0, 0.0, 1.0 );
}`,xi=class extends fs{constructor(e){super(),this.isShaderMaterial=!0,this.type="ShaderMaterial",this.defines={},this.uniforms={},this.uniformsGroups=[],this.vertexShader=Gv,this.fragmentShader=Wv,this.linewidth=1,this.wireframe=!1,this.wireframeLinewidth=1,this.fog=!1,this.lights=!1,this.clipping=!1,this.forceSinglePass=!0,this.extensions={clipCullDistance:!1,multiDraw:!1},this.defaultAttributeValues={color:[1,1,1],uv:[0,0],uv1:[0,0]},this.index0AttributeName=void 0,this.uniformsNeedUpdate=!1,this.glslVersion=null,e!==void 0&&this.setValues(e)}copy(e){return super.copy(e),this.fragmentShader=e.fragmentShader,this.vertexShader=e.vertexShader,this.uniforms=vr(e.uniforms),this.uniformsGroups=Vv(e.uniformsGroups),this.defines=Object.assign({},e.defines),this.wireframe=e.wireframe,this.wireframeLinewidth=e.wireframeLinewidth,this.fog=e.fog,this.lights=e.lights,this.clipping=e.clipping,this.extensions=Object.assign({},e.extensions),this.glslVersion=e.glslVersion,this.defaultAttributeValues=Object.assign({},e.defaultAttributeValues),this.index0AttributeName=e.index0AttributeName,this.uniformsNeedUpdate=e.uniformsNeedUpdate,this}toJSON(e){let t=super.toJSON(e);t.glslVersion=this.glslVersion,t.uniforms={};for(let s in this.uniforms){let o=this.uniforms[s].value;o&&o.isTexture?t.uniforms[s]={type:"t",value:o.toJSON(e).uuid}:o&&o.isColor?t.uniforms[s]={type:"c",value:o.getHex()}:o&&o.isVector2?t.uniforms[s]={type:"v2",value:o.toArray()}:o&&o.isVector3?t.uniforms[s]={type:"v3",value:o.toArray()}:o&&o.isVector4?t.uniforms[s]={type:"v4",value:o.toArray()}:o&&o.isMatrix3?t.uniforms[s]={type:"m3",value:o.toArray()}:o&&o.isMatrix4?t.uniforms[s]={type:"m4",value:o.toArray()}:t.uniforms[s]={value:o}}Object.keys(this.defines).length>0&&(t.defines=this.defines),t.vertexShader=this.vertexShader,t.fragmentShader=this.fragmentShader,t.lights=this.lights,t.clipping=this.clipping;let n={};for(let s in this.extensions)this.extensions[s]===!0&&(n[s]=!0);return Object.keys(n).length>0&&(t.extensions=n),t}fromJSON(e,t){if(super.fromJSON(e,t),e.uniforms!==void 0)for(let n in e.uniforms){let s=e.uniforms[n];switch(this.uniforms[n]={},s.type){case"t":this.uniforms[n].value=t[s.value]||null;break;case"c":this.uniforms[n].value=new gt().setHex(s.value);break;case"v2":this.uniforms[n].value=new ze().fromArray(s.value);break;case"v3":this.uniforms[n].value=new F().fromArray(s.value);break;case"v4":this.uniforms[n].value=new Ot().fromArray(s.value);break;case"m3":this.uniforms[n].value=new tt().fromArray(s.value);break;case"m4":this.uniforms[n].value=new Ut().fromArray(s.value);break;default:this.uniforms[n].value=s.value}}if(e.defines!==void 0&&(this.defines=e.defines),e.vertexShader!==void 0&&(this.vertexShader=e.vertexShader),e.fragmentShader!==void 0&&(this.fragmentShader=e.fragmentShader),e.glslVersion!==void 0&&(this.glslVersion=e.glslVersion),e.extensions!==void 0)for(let n in e.extensions)this.extensions[n]=e.extensions[n];return e.lights!==void 0&&(this.lights=e.lights),e.clipping!==void 0&&(this.clipping=e.clipping),this}},mc=class extends xi{constructor(e){super(e),this.isRawShaderMaterial=!0,this.type="RawShaderMaterial"}};var gc=class extends fs{constructor(e){super(),this.isMeshDepthMaterial=!0,this.type="MeshDepthMaterial",this.depthPacking=hg,this.map=null,this.alphaMap=null,this.displacementMap=null,this.displacementScale=1,this.displacementBias=0,this.wireframe=!1,this.wireframeLinewidth=1,this.setValues(e)}copy(e){return super.copy(e),this.depthPacking=e.depthPacking,this.map=e.map,this.alphaMap=e.alphaMap,this.displacementMap=e.displacementMap,this.displacementScale=e.displacementScale,this.displacementBias=e.displacementBias,this.wireframe=e.wireframe,this.wireframeLinewidth=e.wireframeLinewidth,this}},_c=class extends fs{constructor(e){super(),this.isMeshDistanceMaterial=!0,this.type="MeshDistanceMaterial",this.map=null,this.alphaMap=null,this.displacementMap=null,this.displacementScale=1,this.displacementBias=0,this.setValues(e)}copy(e){return super.copy(e),this.map=e.map,this.alphaMap=e.alphaMap,this.displacementMap=e.displacementMap,this.displacementScale=e.displacementScale,this.displacementBias=e.displacementBias,this}};function to(i,e){return!i||i.constructor===e?i:typeof e.BYTES_PER_ELEMENT=="number"?new e(i):Array.prototype.slice.call(i)}function zl(i){return i!==void 0&&i.inTangents!==void 0&&i.outTangents!==void 0}var Os=class{constructor(e,t,n,s){this.parameterPositions=e,this._cachedIndex=0,this.resultBuffer=s!==void 0?s:new t.constructor(n),this.sampleValues=t,this.valueSize=n,this.settings=null,this.DefaultSettings_={}}evaluate(e){let t=this.parameterPositions,n=this._cachedIndex,s=t[n],r=t[n-1];n:{e:{let o;t:{i:if(!(e<s)){for(let a=n+2;;){if(s===void 0){if(e<r)break i;return n=t.length,this._cachedIndex=n,this.copySampleValue_(n-1)}if(n===a)break;if(r=s,s=t[++n],e<s)break e}o=t.length;break t}if(!(e>=r)){let a=t[1];e<a&&(n=2,r=a);for(let l=n-2;;){if(r===void 0)return this._cachedIndex=0,this.copySampleValue_(0);if(n===l)break;if(s=r,r=t[--n-1],e>=r)break e}o=n,n=0;break t}break n}for(;n<o;){let a=n+o>>>1;e<t[a]?o=a:n=a+1}if(s=t[n],r=t[n-1],r===void 0)return this._cachedIndex=0,this.copySampleValue_(0);if(s===void 0)return n=t.length,this._cachedIndex=n,this.copySampleValue_(n-1)}this._cachedIndex=n,this.intervalChanged_(n,r,s)}return this.interpolate_(n,r,e,s)}getSettings_(){return this.settings||this.DefaultSettings_}copySampleValue_(e){let t=this.resultBuffer,n=this.sampleValues,s=this.valueSize,r=e*s;for(let o=0;o!==s;++o)t[o]=n[r+o];return t}interpolate_(){throw new Error("THREE.Interpolant: Call to abstract method.")}intervalChanged_(){}},xc=class extends Os{constructor(e,t,n,s){super(e,t,n,s),this._weightPrev=-0,this._offsetPrev=-0,this._weightNext=-0,this._offsetNext=-0,this.DefaultSettings_={endingStart:qu,endingEnd:qu}}intervalChanged_(e,t,n){let s=this.parameterPositions,r=e-2,o=e+1,a=s[r],l=s[o];if(a===void 0)switch(this.getSettings_().endingStart){case Yu:r=e,a=2*t-n;break;case $u:r=s.length-2,a=t+s[r]-s[r+1];break;default:r=e,a=n}if(l===void 0)switch(this.getSettings_().endingEnd){case Yu:o=e,l=2*n-t;break;case $u:o=1,l=n+s[1]-s[0];break;default:o=e-1,l=t}let c=(n-t)*.5,h=this.valueSize;this._weightPrev=c/(t-a),this._weightNext=c/(l-n),this._offsetPrev=r*h,this._offsetNext=o*h}interpolate_(e,t,n,s){let r=this.resultBuffer,o=this.sampleValues,a=this.valueSize,l=e*a,c=l-a,h=this._offsetPrev,u=this._offsetNext,d=this._weightPrev,f=this._weightNext,p=(n-t)/(s-t),y=p*p,m=y*p,g=-d*m+2*d*y-d*p,v=(1+d)*m+(-1.5-2*d)*y+(-.5+d)*p+1,A=(-1-f)*m+(1.5+f)*y+.5*p,S=f*m-f*y;for(let C=0;C!==a;++C)r[C]=g*o[h+C]+v*o[c+C]+A*o[l+C]+S*o[u+C];return r}},vc=class extends Os{constructor(e,t,n,s){super(e,t,n,s)}interpolate_(e,t,n,s){let r=this.resultBuffer,o=this.sampleValues,a=this.valueSize,l=e*a,c=l-a,h=(n-t)/(s-t),u=1-h;for(let d=0;d!==a;++d)r[d]=o[c+d]*u+o[l+d]*h;return r}},yc=class extends Os{constructor(e,t,n,s){super(e,t,n,s)}interpolate_(e){return this.copySampleValue_(e-1)}},bc=class extends Os{interpolate_(e,t,n,s){let r=this.resultBuffer,o=this.sampleValues,a=this.valueSize,l=e*a,c=l-a,h=this.inTangents,u=this.outTangents;if(!h||!u){let p=(n-t)/(s-t),y=1-p;for(let m=0;m!==a;++m)r[m]=o[c+m]*y+o[l+m]*p;return r}let d=a*2,f=e-1;for(let p=0;p!==a;++p){let y=o[c+p],m=o[l+p],g=f*d+p*2,v=u[g],A=u[g+1],S=e*d+p*2,C=h[S],T=h[S+1],x=qv(n,t,v,C,s);r[p]=Ag(x,y,A,T,m)}return r}};function Ag(i,e,t,n,s){let r=1-i;return r*r*r*e+3*r*r*i*t+3*r*i*i*n+i*i*i*s}function Xv(i,e,t,n,s){let r=1-i;return 3*r*r*(t-e)+6*r*i*(n-t)+3*i*i*(s-n)}function qv(i,e,t,n,s){let r=(i-e)/(s-e);for(let o=0;o<8;o++){let a=Ag(r,e,t,n,s)-i;if(Math.abs(a)<1e-10)break;let l=Xv(r,e,t,n,s);if(Math.abs(l)<1e-10)break;r=Math.max(0,Math.min(1,r-a/l))}return r}var li=class{constructor(e,t,n,s){if(e===void 0)throw new Error("THREE.KeyframeTrack: track name is undefined");if(t===void 0||t.length===0)throw new Error("THREE.KeyframeTrack: no keyframes in track named "+e);this.name=e,this.times=to(t,this.TimeBufferType),this.values=to(n,this.ValueBufferType),this.setInterpolation(s||this.DefaultInterpolation)}static toJSON(e){let t=e.constructor,n;if(t.toJSON!==this.toJSON)n=t.toJSON(e);else{n={name:e.name,times:to(e.times,Array),values:to(e.values,Array)};let s=e.getInterpolation();s!==e.DefaultInterpolation&&(n.interpolation=s),zl(e.settings)&&(n.settings={inTangents:to(e.settings.inTangents,Array),outTangents:to(e.settings.outTangents,Array)})}return n.type=e.ValueTypeName,n}InterpolantFactoryMethodDiscrete(e){return new yc(this.times,this.values,this.getValueSize(),e)}InterpolantFactoryMethodLinear(e){return new vc(this.times,this.values,this.getValueSize(),e)}InterpolantFactoryMethodSmooth(e){return new xc(this.times,this.values,this.getValueSize(),e)}InterpolantFactoryMethodBezier(e){let t=new bc(this.times,this.values,this.getValueSize(),e);return this.settings&&(t.inTangents=this.settings.inTangents,t.outTangents=this.settings.outTangents),t}setInterpolation(e){let t;switch(e){case na:t=this.InterpolantFactoryMethodDiscrete;break;case ec:t=this.InterpolantFactoryMethodLinear;break;case Gl:t=this.InterpolantFactoryMethodSmooth;break;case Xu:t=this.InterpolantFactoryMethodBezier;break}if(t===void 0){let n="unsupported interpolation for "+this.ValueTypeName+" keyframe track named "+this.name;if(this.createInterpolant===void 0)if(e!==this.DefaultInterpolation)this.setInterpolation(this.DefaultInterpolation);else throw new Error(n);return $e("KeyframeTrack:",n),this}return this.createInterpolant=t,this}getInterpolation(){switch(this.createInterpolant){case this.InterpolantFactoryMethodDiscrete:return na;case this.InterpolantFactoryMethodLinear:return ec;case this.InterpolantFactoryMethodSmooth:return Gl;case this.InterpolantFactoryMethodBezier:return Xu}}getValueSize(){return this.values.length/this.times.length}shift(e){if(e!==0){let t=this.times;for(let n=0,s=t.length;n!==s;++n)t[n]+=e;zl(this.settings)&&(Om(this.settings.inTangents,e),Om(this.settings.outTangents,e))}return this}scale(e){if(e!==1){let t=this.times;for(let n=0,s=t.length;n!==s;++n)t[n]*=e;zl(this.settings)&&(Fm(this.settings.inTangents,e),Fm(this.settings.outTangents,e))}return this}trim(e,t){let n=this.times,s=n.length,r=0,o=s-1;for(;r!==s&&n[r]<e;)++r;for(;o!==-1&&n[o]>t;)--o;if(++o,r!==0||o!==s){r>=o&&(o=Math.max(o,1),r=o-1);let a=this.getValueSize();this.times=n.slice(r,o),this.values=this.values.slice(r*a,o*a)}return this}validate(){let e=!0,t=this.getValueSize();t-Math.floor(t)!==0&&(et("KeyframeTrack: Invalid value size in track.",this),e=!1);let n=this.times,s=this.values,r=n.length;r===0&&(et("KeyframeTrack: Track is empty.",this),e=!1);let o=null;for(let a=0;a!==r;a++){let l=n[a];if(typeof l=="number"&&isNaN(l)){et("KeyframeTrack: Time is not a valid number.",this,a,l),e=!1;break}if(o!==null&&o>l){et("KeyframeTrack: Out of order keys.",this,a,l,o),e=!1;break}o=l}if(s!==void 0&&ev(s))for(let a=0,l=s.length;a!==l;++a){let c=s[a];if(isNaN(c)){et("KeyframeTrack: Value is not a valid number.",this,a,c),e=!1;break}}return e}optimize(){let e=this.times.slice(),t=this.values.slice(),n=this.getValueSize(),s=this.getInterpolation()===Gl,r=e.length-1,o=1;for(let a=1;a<r;++a){let l=!1,c=e[a],h=e[a+1];if(c!==h&&(a!==1||c!==e[0]))if(s)l=!0;else{let u=a*n,d=u-n,f=u+n;for(let p=0;p!==n;++p){let y=t[u+p];if(y!==t[d+p]||y!==t[f+p]){l=!0;break}}}if(l){if(a!==o){e[o]=e[a];let u=a*n,d=o*n;for(let f=0;f!==n;++f)t[d+f]=t[u+f]}++o}}if(r>0){e[o]=e[r];for(let a=r*n,l=o*n,c=0;c!==n;++c)t[l+c]=t[a+c];++o}return o!==e.length?(this.times=e.slice(0,o),this.values=t.slice(0,o*n)):(this.times=e,this.values=t),this}clone(){let e=this.times.slice(),t=this.values.slice(),n=this.constructor,s=new n(this.name,e,t);return s.createInterpolant=this.createInterpolant,zl(this.settings)&&(s.settings={inTangents:this.settings.inTangents.slice(),outTangents:this.settings.outTangents.slice()}),s}};function Om(i,e){for(let t=0,n=i.length;t!==n;t+=2)i[t]+=e}function Fm(i,e){for(let t=0,n=i.length;t!==n;t+=2)i[t]*=e}li.prototype.ValueTypeName="";li.prototype.TimeBufferType=Float32Array;li.prototype.ValueBufferType=Float32Array;li.prototype.DefaultInterpolation=ec;var Fs=class extends li{constructor(e,t,n){super(e,t,n)}};Fs.prototype.ValueTypeName="bool";Fs.prototype.ValueBufferType=Array;Fs.prototype.DefaultInterpolation=na;Fs.prototype.InterpolantFactoryMethodLinear=void 0;Fs.prototype.InterpolantFactoryMethodSmooth=void 0;var Sc=class extends li{constructor(e,t,n,s){super(e,t,n,s)}};Sc.prototype.ValueTypeName="color";var Mc=class extends li{constructor(e,t,n,s){super(e,t,n,s)}};Mc.prototype.ValueTypeName="number";var wc=class extends Os{constructor(e,t,n,s){super(e,t,n,s)}interpolate_(e,t,n,s){let r=this.resultBuffer,o=this.sampleValues,a=this.valueSize,l=(n-t)/(s-t),c=e*a;for(let h=c+a;c!==h;c+=4)ai.slerpFlat(r,0,o,c-a,o,c,l);return r}},ya=class extends li{constructor(e,t,n,s){super(e,t,n,s)}InterpolantFactoryMethodLinear(e){return new wc(this.times,this.values,this.getValueSize(),e)}};ya.prototype.ValueTypeName="quaternion";ya.prototype.InterpolantFactoryMethodSmooth=void 0;var Bs=class extends li{constructor(e,t,n){super(e,t,n)}};Bs.prototype.ValueTypeName="string";Bs.prototype.ValueBufferType=Array;Bs.prototype.DefaultInterpolation=na;Bs.prototype.InterpolantFactoryMethodLinear=void 0;Bs.prototype.InterpolantFactoryMethodSmooth=void 0;var Ec=class extends li{constructor(e,t,n,s){super(e,t,n,s)}};Ec.prototype.ValueTypeName="vector";var Tc=class{constructor(e,t,n){let s=this,r=!1,o=0,a=0,l,c=[];this.onStart=void 0,this.onLoad=e,this.onProgress=t,this.onError=n,this._abortController=null,this.itemStart=function(h){a++,r===!1&&s.onStart!==void 0&&s.onStart(h,o,a),r=!0},this.itemEnd=function(h){o++,s.onProgress!==void 0&&s.onProgress(h,o,a),o===a&&(r=!1,s.onLoad!==void 0&&s.onLoad())},this.itemError=function(h){s.onError!==void 0&&s.onError(h)},this.resolveURL=function(h){return h=h.normalize("NFC"),l?l(h):h},this.setURLModifier=function(h){return l=h,this},this.addHandler=function(h,u){return c.push(h,u),this},this.removeHandler=function(h){let u=c.indexOf(h);return u!==-1&&c.splice(u,2),this},this.getHandler=function(h){for(let u=0,d=c.length;u<d;u+=2){let f=c[u],p=c[u+1];if(f.global&&(f.lastIndex=0),f.test(h))return p}return null},this.abort=function(){return this.abortController.abort(),this._abortController=null,this}}get abortController(){return this._abortController||(this._abortController=new AbortController),this._abortController}},Rg=new Tc,Ac=class{constructor(e){this.manager=e!==void 0?e:Rg,this.crossOrigin="anonymous",this.withCredentials=!1,this.path="",this.resourcePath="",this.requestHeader={},this.priority="auto",this.cache="default",typeof __THREE_DEVTOOLS__<"u"&&__THREE_DEVTOOLS__.dispatchEvent(new CustomEvent("observe",{detail:this}))}load(){}loadAsync(e,t){let n=this;return new Promise(function(s,r){n.load(e,s,t,r)})}parse(){}setCrossOrigin(e){return this.crossOrigin=e,this}setWithCredentials(e){return this.withCredentials=e,this}setPath(e){return this.path=e,this}setResourcePath(e){return this.resourcePath=e,this}setRequestHeader(e){return this.requestHeader=e,this}setPriority(e){return this.priority=e,this}setCache(e){return this.cache=e,this}abort(){return this}};Ac.DEFAULT_MATERIAL_NAME="__DEFAULT";var Hl=new F,Vl=new ai,Gi=new F,ba=class extends Yn{constructor(){super(),this.isCamera=!0,this.type="Camera",this.matrixWorldInverse=new Ut,this.projectionMatrix=new Ut,this.projectionMatrixInverse=new Ut,this.coordinateSystem=gi,this._reversedDepth=!1}get reversedDepth(){return this._reversedDepth}copy(e,t){return super.copy(e,t),this.matrixWorldInverse.copy(e.matrixWorldInverse),this.projectionMatrix.copy(e.projectionMatrix),this.projectionMatrixInverse.copy(e.projectionMatrixInverse),this.coordinateSystem=e.coordinateSystem,this}getWorldDirection(e){return super.getWorldDirection(e).negate()}updateMatrixWorld(e){super.updateMatrixWorld(e),this.matrixWorld.decompose(Hl,Vl,Gi),Gi.x===1&&Gi.y===1&&Gi.z===1?this.matrixWorldInverse.copy(this.matrixWorld).invert():this.matrixWorldInverse.compose(Hl,Vl,Gi.set(1,1,1)).invert()}updateWorldMatrix(e,t,n=!1){super.updateWorldMatrix(e,t,n),this.matrixWorld.decompose(Hl,Vl,Gi),Gi.x===1&&Gi.y===1&&Gi.z===1?this.matrixWorldInverse.copy(this.matrixWorld).invert():this.matrixWorldInverse.compose(Hl,Vl,Gi.set(1,1,1)).invert()}clone(){return new this.constructor().copy(this)}},Ls=new F,Bm=new ze,km=new ze,Vn=class extends ba{constructor(e=50,t=1,n=.1,s=2e3){super(),this.isPerspectiveCamera=!0,this.type="PerspectiveCamera",this.fov=e,this.zoom=1,this.near=n,this.far=s,this.focus=10,this.aspect=t,this.view=null,this.filmGauge=35,this.filmOffset=0,this.updateProjectionMatrix()}copy(e,t){return super.copy(e,t),this.fov=e.fov,this.zoom=e.zoom,this.near=e.near,this.far=e.far,this.focus=e.focus,this.aspect=e.aspect,this.view=e.view===null?null:Object.assign({},e.view),this.filmGauge=e.filmGauge,this.filmOffset=e.filmOffset,this}setFocalLength(e){let t=.5*this.getFilmHeight()/e;this.fov=ao*2*Math.atan(t),this.updateProjectionMatrix()}getFocalLength(){let e=Math.tan(jo*.5*this.fov);return .5*this.getFilmHeight()/e}getEffectiveFOV(){return ao*2*Math.atan(Math.tan(jo*.5*this.fov)/this.zoom)}getFilmWidth(){return this.filmGauge*Math.min(this.aspect,1)}getFilmHeight(){return this.filmGauge/Math.max(this.aspect,1)}getViewBounds(e,t,n){Ls.set(-1,-1,.5).applyMatrix4(this.projectionMatrixInverse),t.set(Ls.x,Ls.y).multiplyScalar(-e/Ls.z),Ls.set(1,1,.5).applyMatrix4(this.projectionMatrixInverse),n.set(Ls.x,Ls.y).multiplyScalar(-e/Ls.z)}getViewSize(e,t){return this.getViewBounds(e,Bm,km),t.subVectors(km,Bm)}setViewOffset(e,t,n,s,r,o){this.aspect=e/t,this.view===null&&(this.view={enabled:!0,fullWidth:1,fullHeight:1,offsetX:0,offsetY:0,width:1,height:1}),this.view.enabled=!0,this.view.fullWidth=e,this.view.fullHeight=t,this.view.offsetX=n,this.view.offsetY=s,this.view.width=r,this.view.height=o,this.updateProjectionMatrix()}clearViewOffset(){this.view!==null&&(this.view.enabled=!1),this.updateProjectionMatrix()}updateProjectionMatrix(){let e=this.near,t=e*Math.tan(jo*.5*this.fov)/this.zoom,n=2*t,s=this.aspect*n,r=-.5*s,o=this.view;if(this.view!==null&&this.view.enabled){let l=o.fullWidth,c=o.fullHeight;r+=o.offsetX*s/l,t-=o.offsetY*n/c,s*=o.width/l,n*=o.height/c}let a=this.filmOffset;a!==0&&(r+=e*a/this.getFilmWidth()),this.projectionMatrix.makePerspective(r,r+s,t,t-n,e,this.far,this.coordinateSystem,this.reversedDepth),this.projectionMatrixInverse.copy(this.projectionMatrix).invert()}toJSON(e){let t=super.toJSON(e);return t.object.fov=this.fov,t.object.zoom=this.zoom,t.object.near=this.near,t.object.far=this.far,t.object.focus=this.focus,t.object.aspect=this.aspect,this.view!==null&&(t.object.view=Object.assign({},this.view)),t.object.filmGauge=this.filmGauge,t.object.filmOffset=this.filmOffset,t}};var pr=class extends ba{constructor(e=-1,t=1,n=1,s=-1,r=.1,o=2e3){super(),this.isOrthographicCamera=!0,this.type="OrthographicCamera",this.zoom=1,this.view=null,this.left=e,this.right=t,this.top=n,this.bottom=s,this.near=r,this.far=o,this.updateProjectionMatrix()}copy(e,t){return super.copy(e,t),this.left=e.left,this.right=e.right,this.top=e.top,this.bottom=e.bottom,this.near=e.near,this.far=e.far,this.zoom=e.zoom,this.view=e.view===null?null:Object.assign({},e.view),this}setViewOffset(e,t,n,s,r,o){this.view===null&&(this.view={enabled:!0,fullWidth:1,fullHeight:1,offsetX:0,offsetY:0,width:1,height:1}),this.view.enabled=!0,this.view.fullWidth=e,this.view.fullHeight=t,this.view.offsetX=n,this.view.offsetY=s,this.view.width=r,this.view.height=o,this.updateProjectionMatrix()}clearViewOffset(){this.view!==null&&(this.view.enabled=!1),this.updateProjectionMatrix()}updateProjectionMatrix(){let e=(this.right-this.left)/(2*this.zoom),t=(this.top-this.bottom)/(2*this.zoom),n=(this.right+this.left)/2,s=(this.top+this.bottom)/2,r=n-e,o=n+e,a=s+t,l=s-t;if(this.view!==null&&this.view.enabled){let c=(this.right-this.left)/this.view.fullWidth/this.zoom,h=(this.top-this.bottom)/this.view.fullHeight/this.zoom;r+=c*this.view.offsetX,o=r+c*this.view.width,a-=h*this.view.offsetY,l=a-h*this.view.height}this.projectionMatrix.makeOrthographic(r,o,a,l,this.near,this.far,this.coordinateSystem,this.reversedDepth),this.projectionMatrixInverse.copy(this.projectionMatrix).invert()}toJSON(e){let t=super.toJSON(e);return t.object.zoom=this.zoom,t.object.left=this.left,t.object.right=this.right,t.object.top=this.top,t.object.bottom=this.bottom,t.object.near=this.near,t.object.far=this.far,this.view!==null&&(t.object.view=Object.assign({},this.view)),t}};var no=-90,io=1,po=class extends Yn{constructor(e,t,n){super(),this.type="CubeCamera",this.renderTarget=n,this.coordinateSystem=null,this.activeMipmapLevel=0;let s=new Vn(no,io,e,t);s.layers=this.layers,this.add(s);let r=new Vn(no,io,e,t);r.layers=this.layers,this.add(r);let o=new Vn(no,io,e,t);o.layers=this.layers,this.add(o);let a=new Vn(no,io,e,t);a.layers=this.layers,this.add(a);let l=new Vn(no,io,e,t);l.layers=this.layers,this.add(l);let c=new Vn(no,io,e,t);c.layers=this.layers,this.add(c)}updateCoordinateSystem(){let e=this.coordinateSystem,t=this.children.concat(),[n,s,r,o,a,l]=t;for(let c of t)this.remove(c);if(e===gi)n.up.set(0,1,0),n.lookAt(1,0,0),s.up.set(0,1,0),s.lookAt(-1,0,0),r.up.set(0,0,-1),r.lookAt(0,1,0),o.up.set(0,0,1),o.lookAt(0,-1,0),a.up.set(0,1,0),a.lookAt(0,0,1),l.up.set(0,1,0),l.lookAt(0,0,-1);else if(e===sa)n.up.set(0,-1,0),n.lookAt(-1,0,0),s.up.set(0,-1,0),s.lookAt(1,0,0),r.up.set(0,0,1),r.lookAt(0,1,0),o.up.set(0,0,-1),o.lookAt(0,-1,0),a.up.set(0,-1,0),a.lookAt(0,0,1),l.up.set(0,-1,0),l.lookAt(0,0,-1);else throw new Error("THREE.CubeCamera.updateCoordinateSystem(): Invalid coordinate system: "+e);for(let c of t)this.add(c),c.updateMatrixWorld()}update(e,t){this.parent===null&&this.updateMatrixWorld();let{renderTarget:n,activeMipmapLevel:s}=this;this.coordinateSystem!==e.coordinateSystem&&(this.coordinateSystem=e.coordinateSystem,this.updateCoordinateSystem());let[r,o,a,l,c,h]=this.children,u=e.getRenderTarget(),d=e.getActiveCubeFace(),f=e.getActiveMipmapLevel(),p=e.xr.enabled;e.xr.enabled=!1;let y=n.texture.mipmapsAutoUpdate;n.texture.mipmapsAutoUpdate=!1;let m=!1;e.isWebGLRenderer===!0?m=e.state.buffers.depth.getReversed():m=e.reversedDepthBuffer,e.setRenderTarget(n,0,s),m&&e.autoClear===!1&&e.clearDepth(),e.render(t,r),e.setRenderTarget(n,1,s),m&&e.autoClear===!1&&e.clearDepth(),e.render(t,o),e.setRenderTarget(n,2,s),m&&e.autoClear===!1&&e.clearDepth(),e.render(t,a),e.setRenderTarget(n,3,s),m&&e.autoClear===!1&&e.clearDepth(),e.render(t,l),e.setRenderTarget(n,4,s),m&&e.autoClear===!1&&e.clearDepth(),e.render(t,c),n.texture.mipmapsAutoUpdate=y,e.setRenderTarget(n,5,s),m&&e.autoClear===!1&&e.clearDepth(),e.render(t,h),e.setRenderTarget(u,d,f),e.xr.enabled=p,n.texture.needsPMREMUpdate=!0}},Rc=class extends Vn{constructor(e=[]){super(),this.isArrayCamera=!0,this.isMultiViewCamera=!1,this.cameras=e,this.perCameraFrustumCulled=!1}};var Pd="\\[\\]\\.:\\/",Yv=new RegExp("["+Pd+"]","g"),Id="[^"+Pd+"]",$v="[^"+Pd.replace("\\.","")+"]",Zv=/((?:WC+[\/:])*)/.source.replace("WC",Id),Kv=/(WCOD+)?/.source.replace("WCOD",$v),Jv=/(?:\.(WC+)(?:\[(.+)\])?)?/.source.replace("WC",Id),jv=/\.(WC+)(?:\[(.+)\])?/.source.replace("WC",Id),Qv=new RegExp("^"+Zv+Kv+Jv+jv+"$"),ey=["material","materials","bones","map"],Ku=class{constructor(e,t,n){let s=n||Gt.parseTrackName(t);this._targetGroup=e,this._bindings=e.subscribe_(t,s)}getValue(e,t){this.bind();let n=this._targetGroup.nCachedObjects_,s=this._bindings[n];s!==void 0&&s.getValue(e,t)}setValue(e,t){let n=this._bindings;for(let s=this._targetGroup.nCachedObjects_,r=n.length;s!==r;++s)n[s].setValue(e,t)}bind(){let e=this._bindings;for(let t=this._targetGroup.nCachedObjects_,n=e.length;t!==n;++t)e[t].bind()}unbind(){let e=this._bindings;for(let t=this._targetGroup.nCachedObjects_,n=e.length;t!==n;++t)e[t].unbind()}},Gt=class i{constructor(e,t,n){this.path=t,this.parsedPath=n||i.parseTrackName(t),this.node=i.findNode(e,this.parsedPath.nodeName),this.rootNode=e,this.getValue=this._getValue_unbound,this.setValue=this._setValue_unbound}static create(e,t,n){return e&&e.isAnimationObjectGroup?new i.Composite(e,t,n):new i(e,t,n)}static sanitizeNodeName(e){return e.replace(/\s/g,"_").replace(Yv,"")}static parseTrackName(e){let t=Qv.exec(e);if(t===null)throw new Error("THREE.PropertyBinding: Cannot parse trackName: "+e);let n={nodeName:t[2],objectName:t[3],objectIndex:t[4],propertyName:t[5],propertyIndex:t[6]},s=n.nodeName&&n.nodeName.lastIndexOf(".");if(s!==void 0&&s!==-1){let r=n.nodeName.substring(s+1);ey.indexOf(r)!==-1&&(n.nodeName=n.nodeName.substring(0,s),n.objectName=r)}if(n.propertyName===null||n.propertyName.length===0)throw new Error("THREE.PropertyBinding: can not parse propertyName from trackName: "+e);return n}static findNode(e,t){if(t===void 0||t===""||t==="."||t===-1||t===e.name||t===e.uuid)return e;if(e.skeleton){let n=e.skeleton.getBoneByName(t);if(n!==void 0)return n}if(e.children){let n=function(r){for(let o=0;o<r.length;o++){let a=r[o];if(a.name===t||a.uuid===t)return a;let l=n(a.children);if(l)return l}return null},s=n(e.children);if(s)return s}return null}_getValue_unavailable(){}_setValue_unavailable(){}_getValue_direct(e,t){e[t]=this.targetObject[this.propertyName]}_getValue_array(e,t){let n=this.resolvedProperty;for(let s=0,r=n.length;s!==r;++s)e[t++]=n[s]}_getValue_arrayElement(e,t){e[t]=this.resolvedProperty[this.propertyIndex]}_getValue_toArray(e,t){this.resolvedProperty.toArray(e,t)}_setValue_direct(e,t){this.targetObject[this.propertyName]=e[t]}_setValue_direct_setNeedsUpdate(e,t){this.targetObject[this.propertyName]=e[t],this.targetObject.needsUpdate=!0}_setValue_direct_setMatrixWorldNeedsUpdate(e,t){this.targetObject[this.propertyName]=e[t],this.targetObject.matrixWorldNeedsUpdate=!0}_setValue_array(e,t){let n=this.resolvedProperty;for(let s=0,r=n.length;s!==r;++s)n[s]=e[t++]}_setValue_array_setNeedsUpdate(e,t){let n=this.resolvedProperty;for(let s=0,r=n.length;s!==r;++s)n[s]=e[t++];this.targetObject.needsUpdate=!0}_setValue_array_setMatrixWorldNeedsUpdate(e,t){let n=this.resolvedProperty;for(let s=0,r=n.length;s!==r;++s)n[s]=e[t++];this.targetObject.matrixWorldNeedsUpdate=!0}_setValue_arrayElement(e,t){this.resolvedProperty[this.propertyIndex]=e[t]}_setValue_arrayElement_setNeedsUpdate(e,t){this.resolvedProperty[this.propertyIndex]=e[t],this.targetObject.needsUpdate=!0}_setValue_arrayElement_setMatrixWorldNeedsUpdate(e,t){this.resolvedProperty[this.propertyIndex]=e[t],this.targetObject.matrixWorldNeedsUpdate=!0}_setValue_fromArray(e,t){this.resolvedProperty.fromArray(e,t)}_setValue_fromArray_setNeedsUpdate(e,t){this.resolvedProperty.fromArray(e,t),this.targetObject.needsUpdate=!0}_setValue_fromArray_setMatrixWorldNeedsUpdate(e,t){this.resolvedProperty.fromArray(e,t),this.targetObject.matrixWorldNeedsUpdate=!0}_getValue_unbound(e,t){this.bind(),this.getValue(e,t)}_setValue_unbound(e,t){this.bind(),this.setValue(e,t)}bind(){let e=this.node,t=this.parsedPath,n=t.objectName,s=t.propertyName,r=t.propertyIndex;if(e||(e=i.findNode(this.rootNode,t.nodeName),this.node=e),this.getValue=this._getValue_unavailable,this.setValue=this._setValue_unavailable,!e){$e("PropertyBinding: No target node found for track: "+this.path+".");return}if(n){let c=t.objectIndex;switch(n){case"materials":if(!e.material){et("PropertyBinding: Can not bind to material as node does not have a material.",this);return}if(!e.material.materials){et("PropertyBinding: Can not bind to material.materials as node.material does not have a materials array.",this);return}e=e.material.materials;break;case"bones":if(!e.skeleton){et("PropertyBinding: Can not bind to bones as node does not have a skeleton.",this);return}e=e.skeleton.bones;for(let h=0;h<e.length;h++)if(e[h].name===c){c=h;break}break;case"map":if("map"in e){e=e.map;break}if(!e.material){et("PropertyBinding: Can not bind to material as node does not have a material.",this);return}if(!e.material.map){et("PropertyBinding: Can not bind to material.map as node.material does not have a map.",this);return}e=e.material.map;break;default:if(e[n]===void 0){et("PropertyBinding: Can not bind to objectName of node undefined.",this);return}e=e[n]}if(c!==void 0){if(e[c]===void 0){et("PropertyBinding: Trying to bind to objectIndex of objectName, but is undefined.",this,e);return}e=e[c]}}let o=e[s];if(o===void 0){let c=t.nodeName;et("PropertyBinding: Trying to update property for track: "+c+"."+s+" but it wasn't found.",e);return}let a=this.Versioning.None;this.targetObject=e,e.isMaterial===!0?a=this.Versioning.NeedsUpdate:e.isObject3D===!0&&(a=this.Versioning.MatrixWorldNeedsUpdate);let l=this.BindingType.Direct;if(r!==void 0){if(s==="morphTargetInfluences"){if(!e.geometry){et("PropertyBinding: Can not bind to morphTargetInfluences because node does not have a geometry.",this);return}if(!e.geometry.morphAttributes){et("PropertyBinding: Can not bind to morphTargetInfluences because node does not have a geometry.morphAttributes.",this);return}e.morphTargetDictionary[r]!==void 0&&(r=e.morphTargetDictionary[r])}l=this.BindingType.ArrayElement,this.resolvedProperty=o,this.propertyIndex=r}else o.fromArray!==void 0&&o.toArray!==void 0?(l=this.BindingType.HasFromToArray,this.resolvedProperty=o):Array.isArray(o)?(l=this.BindingType.EntireArray,this.resolvedProperty=o):this.propertyName=s;this.getValue=this.GetterByBindingType[l],this.setValue=this.SetterByBindingTypeAndVersioning[l][a]}unbind(){this.node=null,this.getValue=this._getValue_unbound,this.setValue=this._setValue_unbound}};Gt.Composite=Ku;Gt.prototype.BindingType={Direct:0,EntireArray:1,ArrayElement:2,HasFromToArray:3};Gt.prototype.Versioning={None:0,NeedsUpdate:1,MatrixWorldNeedsUpdate:2};Gt.prototype.GetterByBindingType=[Gt.prototype._getValue_direct,Gt.prototype._getValue_array,Gt.prototype._getValue_arrayElement,Gt.prototype._getValue_toArray];Gt.prototype.SetterByBindingTypeAndVersioning=[[Gt.prototype._setValue_direct,Gt.prototype._setValue_direct_setNeedsUpdate,Gt.prototype._setValue_direct_setMatrixWorldNeedsUpdate],[Gt.prototype._setValue_array,Gt.prototype._setValue_array_setNeedsUpdate,Gt.prototype._setValue_array_setMatrixWorldNeedsUpdate],[Gt.prototype._setValue_arrayElement,Gt.prototype._setValue_arrayElement_setNeedsUpdate,Gt.prototype._setValue_arrayElement_setMatrixWorldNeedsUpdate],[Gt.prototype._setValue_fromArray,Gt.prototype._setValue_fromArray_setNeedsUpdate,Gt.prototype._setValue_fromArray_setMatrixWorldNeedsUpdate]];var kE=new Float32Array(1);var mo=class{constructor(e=1,t=0,n=0){this.radius=e,this.phi=t,this.theta=n}set(e,t,n){return this.radius=e,this.phi=t,this.theta=n,this}copy(e){return this.radius=e.radius,this.phi=e.phi,this.theta=e.theta,this}makeSafe(){return this.phi=ct(this.phi,1e-6,Math.PI-1e-6),this}setFromVector3(e){return this.setFromCartesianCoords(e.x,e.y,e.z)}setFromCartesianCoords(e,t,n){return this.radius=Math.sqrt(e*e+t*t+n*n),this.radius===0?(this.theta=0,this.phi=0):(this.theta=Math.atan2(e,n),this.phi=Math.acos(ct(t/this.radius,-1,1))),this}clone(){return new this.constructor().copy(this)}};var Fd=class Fd{constructor(e,t,n,s){this.elements=[1,0,0,1],e!==void 0&&this.set(e,t,n,s)}identity(){return this.set(1,0,0,1),this}fromArray(e,t=0){for(let n=0;n<4;n++)this.elements[n]=e[n+t];return this}set(e,t,n,s){let r=this.elements;return r[0]=e,r[2]=t,r[1]=n,r[3]=s,this}};Fd.prototype.isMatrix2=!0;var Ju=Fd;var Sa=class extends Ci{constructor(e,t=null){super(),this.object=e,this.domElement=t,this.enabled=!0,this.state=-1,this.keys={},this.mouseButtons={LEFT:null,MIDDLE:null,RIGHT:null},this.touches={ONE:null,TWO:null}}connect(e){this.domElement!==null&&this.disconnect(),this.domElement=e}disconnect(){}dispose(){}update(){}};function Ld(i,e,t,n){let s=ty(n);switch(t){case _d:return i*e;case vd:return i*e/s.components*s.byteLength;case yo:return i*e/s.components*s.byteLength;case Vs:return i*e*2/s.components*s.byteLength;case Uc:return i*e*2/s.components*s.byteLength;case xd:return i*e*3/s.components*s.byteLength;case Di:return i*e*4/s.components*s.byteLength;case Oc:return i*e*4/s.components*s.byteLength;case Ea:case Ta:return Math.floor((i+3)/4)*Math.floor((e+3)/4)*8;case Aa:case Ra:return Math.floor((i+3)/4)*Math.floor((e+3)/4)*16;case Bc:case zc:return Math.max(i,16)*Math.max(e,8)/4;case Fc:case kc:return Math.max(i,8)*Math.max(e,8)/2;case Hc:case Vc:case Wc:case Xc:return Math.floor((i+3)/4)*Math.floor((e+3)/4)*8;case Gc:case Ca:case qc:return Math.floor((i+3)/4)*Math.floor((e+3)/4)*16;case Yc:return Math.floor((i+3)/4)*Math.floor((e+3)/4)*16;case $c:return Math.floor((i+4)/5)*Math.floor((e+3)/4)*16;case Zc:return Math.floor((i+4)/5)*Math.floor((e+4)/5)*16;case Kc:return Math.floor((i+5)/6)*Math.floor((e+4)/5)*16;case Jc:return Math.floor((i+5)/6)*Math.floor((e+5)/6)*16;case jc:return Math.floor((i+7)/8)*Math.floor((e+4)/5)*16;case Qc:return Math.floor((i+7)/8)*Math.floor((e+5)/6)*16;case eh:return Math.floor((i+7)/8)*Math.floor((e+7)/8)*16;case th:return Math.floor((i+9)/10)*Math.floor((e+4)/5)*16;case nh:return Math.floor((i+9)/10)*Math.floor((e+5)/6)*16;case ih:return Math.floor((i+9)/10)*Math.floor((e+7)/8)*16;case sh:return Math.floor((i+9)/10)*Math.floor((e+9)/10)*16;case rh:return Math.floor((i+11)/12)*Math.floor((e+9)/10)*16;case oh:return Math.floor((i+11)/12)*Math.floor((e+11)/12)*16;case ah:case lh:case ch:return Math.ceil(i/4)*Math.ceil(e/4)*16;case hh:case uh:return Math.ceil(i/4)*Math.ceil(e/4)*8;case Pa:case dh:return Math.ceil(i/4)*Math.ceil(e/4)*16}throw new Error(`Unable to determine texture byte length for ${t} format.`)}function ty(i){switch(i){case Xn:case fd:return{byteLength:1,components:1};case Hs:case pd:case Li:return{byteLength:2,components:1};case Dc:case Nc:return{byteLength:2,components:4};case hi:case vo:case Ii:return{byteLength:4,components:1};case md:case gd:return{byteLength:4,components:3}}throw new Error(`THREE.TextureUtils: Unknown texture type ${i}.`)}typeof __THREE_DEVTOOLS__<"u"&&__THREE_DEVTOOLS__.dispatchEvent(new CustomEvent("register",{detail:{revision:"187"}}));typeof window<"u"&&(window.__THREE__?$e("WARNING: Multiple instances of Three.js being imported."):window.__THREE__="187");function Kg(){let i=null,e=!1,t=null,n=null;function s(r,o){n=i.requestAnimationFrame(s),t(r,o)}return{start:function(){e!==!0&&t!==null&&i!==null&&(n=i.requestAnimationFrame(s),e=!0)},stop:function(){i!==null&&i.cancelAnimationFrame(n),e=!1},setAnimationLoop:function(r){t=r},setContext:function(r){i=r}}}function iy(i){let e=new WeakMap;function t(a,l){let c=a.array,h=a.usage,u=c.byteLength,d=i.createBuffer();i.bindBuffer(l,d),i.bufferData(l,c,h),a.onUploadCallback();let f;if(c instanceof Float32Array)f=i.FLOAT;else if(typeof Float16Array<"u"&&c instanceof Float16Array)f=i.HALF_FLOAT;else if(c instanceof Uint16Array)a.isFloat16BufferAttribute?f=i.HALF_FLOAT:f=i.UNSIGNED_SHORT;else if(c instanceof Int16Array)f=i.SHORT;else if(c instanceof Uint32Array)f=i.UNSIGNED_INT;else if(c instanceof Int32Array)f=i.INT;else if(c instanceof Int8Array)f=i.BYTE;else if(c instanceof Uint8Array)f=i.UNSIGNED_BYTE;else if(c instanceof Uint8ClampedArray)f=i.UNSIGNED_BYTE;else throw new Error("THREE.WebGLAttributes: Unsupported buffer data format: "+c);return{buffer:d,type:f,bytesPerElement:c.BYTES_PER_ELEMENT,version:a.version,size:u}}function n(a,l,c){let h=l.array,u=l.updateRanges;if(i.bindBuffer(c,a),u.length===0)i.bufferSubData(c,0,h);else{u.sort((f,p)=>f.start-p.start);let d=0;for(let f=1;f<u.length;f++){let p=u[d],y=u[f];y.start<=p.start+p.count+1?p.count=Math.max(p.count,y.start+y.count-p.start):(++d,u[d]=y)}u.length=d+1;for(let f=0,p=u.length;f<p;f++){let y=u[f];i.bufferSubData(c,y.start*h.BYTES_PER_ELEMENT,h,y.start,y.count)}l.clearUpdateRanges()}l.onUploadCallback()}function s(a){return a.isInterleavedBufferAttribute&&(a=a.data),e.get(a)}function r(a){a.isInterleavedBufferAttribute&&(a=a.data);let l=e.get(a);l&&(i.deleteBuffer(l.buffer),e.delete(a))}function o(a,l){if(a.isInterleavedBufferAttribute&&(a=a.data),a.isGLBufferAttribute){let h=e.get(a);(!h||h.version<a.version)&&e.set(a,{buffer:a.buffer,type:a.type,bytesPerElement:a.elementSize,version:a.version});return}let c=e.get(a);if(c===void 0)e.set(a,t(a,l));else if(c.version<a.version){if(c.size!==a.array.byteLength)throw new Error("THREE.WebGLAttributes: The size of the buffer attribute's array buffer does not match the original size. Resizing buffer attributes is not supported.");n(c.buffer,a,l),c.version=a.version}}return{get:s,remove:r,update:o}}var sy=`#ifdef USE_ALPHAHASH
	if ( diffuseColor.a < getAlphaHashThreshold( vPosition ) ) discard;
#endif`,ry=`#ifdef USE_ALPHAHASH
	const float ALPHA_HASH_SCALE = 0.05;
	float hash2D( vec2 value ) {
		return fract( 1.0e4 * sin( 17.0 * value.x + 0.1 * value.y ) * ( 0.1 + abs( sin( 13.0 * value.y + value.x ) ) ) );
	}
	float hash3D( vec3 value ) {
		return hash2D( vec2( hash2D( value.xy ), value.z ) );
	}
	float getAlphaHashThreshold( vec3 position ) {
		float maxDeriv = max(
			length( dFdx( position.xyz ) ),
			length( dFdy( position.xyz ) )
		);
		float pixScale = 1.0 / ( ALPHA_HASH_SCALE * maxDeriv );
		vec2 pixScales = vec2(
			exp2( floor( log2( pixScale ) ) ),
			exp2( ceil( log2( pixScale ) ) )
		);
		vec2 alpha = vec2(
			hash3D( floor( pixScales.x * position.xyz ) ),
			hash3D( floor( pixScales.y * position.xyz ) )
		);
		float lerpFactor = fract( log2( pixScale ) );
		float x = ( 1.0 - lerpFactor ) * alpha.x + lerpFactor * alpha.y;
		float a = min( lerpFactor, 1.0 - lerpFactor );
		vec3 cases = vec3(
			x * x / ( 2.0 * a * ( 1.0 - a ) ),
			( x - 0.5 * a ) / ( 1.0 - a ),
			1.0 - ( ( 1.0 - x ) * ( 1.0 - x ) / ( 2.0 * a * ( 1.0 - a ) ) )
		);
		float threshold = ( x < ( 1.0 - a ) )
			? ( ( x < a ) ? cases.x : cases.y )
			: cases.z;
		return clamp( threshold , 1.0e-6, 1.0 );
	}
#endif`,oy=`#ifdef USE_ALPHAMAP
	diffuseColor.a *= texture2D( alphaMap, vAlphaMapUv ).g;
#endif`,ay=`#ifdef USE_ALPHAMAP
	uniform sampler2D alphaMap;
#endif`,ly=`#ifdef USE_ALPHATEST
	#ifdef ALPHA_TO_COVERAGE
	diffuseColor.a = smoothstep( alphaTest, alphaTest + fwidth( diffuseColor.a ), diffuseColor.a );
	if ( diffuseColor.a == 0.0 ) discard;
	#else
	if ( diffuseColor.a < alphaTest ) discard;
	#endif
#endif`,cy=`#ifdef USE_ALPHATEST
	uniform float alphaTest;
#endif`,hy=`#ifdef USE_AOMAP
	float ambientOcclusion = ( texture2D( aoMap, vAoMapUv ).r - 1.0 ) * aoMapIntensity + 1.0;
	reflectedLight.indirectDiffuse *= ambientOcclusion;
	#if defined( USE_CLEARCOAT ) 
		clearcoatSpecularIndirect *= ambientOcclusion;
	#endif
	#if defined( USE_SHEEN ) 
		sheenSpecularIndirect *= ambientOcclusion;
	#endif
	#if defined( USE_ENVMAP ) && defined( STANDARD )
		float dotNV = saturate( dot( geometryNormal, geometryViewDir ) );
		reflectedLight.indirectSpecular *= computeSpecularOcclusion( dotNV, ambientOcclusion, material.roughness );
	#endif
#endif`,uy=`#ifdef USE_AOMAP
	uniform sampler2D aoMap;
	uniform float aoMapIntensity;
#endif`,dy=`#ifdef USE_BATCHING
	#if ! defined( GL_ANGLE_multi_draw )
	#define gl_DrawID _gl_DrawID
	uniform int _gl_DrawID;
	#endif
	uniform highp sampler2D batchingTexture;
	uniform highp usampler2D batchingIdTexture;
	mat4 getBatchingMatrix( const in float i ) {
		int size = textureSize( batchingTexture, 0 ).x;
		int j = int( i ) * 4;
		int x = j % size;
		int y = j / size;
		vec4 v1 = texelFetch( batchingTexture, ivec2( x, y ), 0 );
		vec4 v2 = texelFetch( batchingTexture, ivec2( x + 1, y ), 0 );
		vec4 v3 = texelFetch( batchingTexture, ivec2( x + 2, y ), 0 );
		vec4 v4 = texelFetch( batchingTexture, ivec2( x + 3, y ), 0 );
		return mat4( v1, v2, v3, v4 );
	}
	float getIndirectIndex( const in int i ) {
		int size = textureSize( batchingIdTexture, 0 ).x;
		int x = i % size;
		int y = i / size;
		return float( texelFetch( batchingIdTexture, ivec2( x, y ), 0 ).r );
	}
#endif
#ifdef USE_BATCHING_COLOR
	uniform sampler2D batchingColorTexture;
	vec4 getBatchingColor( const in float i ) {
		int size = textureSize( batchingColorTexture, 0 ).x;
		int j = int( i );
		int x = j % size;
		int y = j / size;
		return texelFetch( batchingColorTexture, ivec2( x, y ), 0 );
	}
#endif`,fy=`#ifdef USE_BATCHING
	mat4 batchingMatrix = getBatchingMatrix( getIndirectIndex( gl_DrawID ) );
#endif`,py=`vec3 transformed = vec3( position );
#ifdef USE_ALPHAHASH
	vPosition = vec3( position );
#endif`,my=`vec3 objectNormal = vec3( normal );
#ifdef USE_TANGENT
	vec3 objectTangent = vec3( tangent.xyz );
#endif`,gy=`float G_BlinnPhong_Implicit( ) {
	return 0.25;
}
float D_BlinnPhong( const in float shininess, const in float dotNH ) {
	return RECIPROCAL_PI * ( shininess * 0.5 + 1.0 ) * pow( dotNH, shininess );
}
vec3 BRDF_BlinnPhong( const in vec3 lightDir, const in vec3 viewDir, const in vec3 normal, const in vec3 specularColor, const in float shininess ) {
	vec3 halfDir = normalize( lightDir + viewDir );
	float dotNH = saturate( dot( normal, halfDir ) );
	float dotVH = saturate( dot( viewDir, halfDir ) );
	vec3 F = F_Schlick( specularColor, 1.0, dotVH );
	float G = G_BlinnPhong_Implicit( );
	float D = D_BlinnPhong( shininess, dotNH );
	return F * ( G * D );
} // validated`,_y=`#ifdef USE_IRIDESCENCE
	const mat3 XYZ_TO_REC709 = mat3(
		 3.2404542, -0.9692660,  0.0556434,
		-1.5371385,  1.8760108, -0.2040259,
		-0.4985314,  0.0415560,  1.0572252
	);
	vec3 Fresnel0ToIor( vec3 fresnel0 ) {
		vec3 sqrtF0 = sqrt( fresnel0 );
		return ( vec3( 1.0 ) + sqrtF0 ) / ( vec3( 1.0 ) - sqrtF0 );
	}
	vec3 IorToFresnel0( vec3 transmittedIor, float incidentIor ) {
		return pow2( ( transmittedIor - vec3( incidentIor ) ) / ( transmittedIor + vec3( incidentIor ) ) );
	}
	float IorToFresnel0( float transmittedIor, float incidentIor ) {
		return pow2( ( transmittedIor - incidentIor ) / ( transmittedIor + incidentIor ));
	}
	vec3 evalSensitivity( float OPD, vec3 shift ) {
		float phase = 2.0 * PI * OPD * 1.0e-9;
		vec3 val = vec3( 5.4856e-13, 4.4201e-13, 5.2481e-13 );
		vec3 pos = vec3( 1.6810e+06, 1.7953e+06, 2.2084e+06 );
		vec3 var = vec3( 4.3278e+09, 9.3046e+09, 6.6121e+09 );
		vec3 xyz = val * sqrt( 2.0 * PI * var ) * cos( pos * phase + shift ) * exp( - pow2( phase ) * var );
		xyz.x += 9.7470e-14 * sqrt( 2.0 * PI * 4.5282e+09 ) * cos( 2.2399e+06 * phase + shift[ 0 ] ) * exp( - 4.5282e+09 * pow2( phase ) );
		xyz /= 1.0685e-7;
		vec3 rgb = XYZ_TO_REC709 * xyz;
		return rgb;
	}
	vec3 evalIridescence( float outsideIOR, float eta2, float cosTheta1, float thinFilmThickness, vec3 baseF0 ) {
		vec3 I;
		float iridescenceIOR = mix( outsideIOR, eta2, smoothstep( 0.0, 0.03, thinFilmThickness ) );
		float sinTheta2Sq = pow2( outsideIOR / iridescenceIOR ) * ( 1.0 - pow2( cosTheta1 ) );
		float cosTheta2Sq = 1.0 - sinTheta2Sq;
		if ( cosTheta2Sq < 0.0 ) {
			return vec3( 1.0 );
		}
		float cosTheta2 = sqrt( cosTheta2Sq );
		float R0 = IorToFresnel0( iridescenceIOR, outsideIOR );
		float R12 = F_Schlick( R0, 1.0, cosTheta1 );
		float T121 = 1.0 - R12;
		float phi12 = 0.0;
		if ( iridescenceIOR < outsideIOR ) phi12 = PI;
		float phi21 = PI - phi12;
		vec3 baseIOR = Fresnel0ToIor( clamp( baseF0, 0.0, 0.9999 ) );		vec3 R1 = IorToFresnel0( baseIOR, iridescenceIOR );
		vec3 R23 = F_Schlick( R1, 1.0, cosTheta2 );
		vec3 phi23 = vec3( 0.0 );
		if ( baseIOR[ 0 ] < iridescenceIOR ) phi23[ 0 ] = PI;
		if ( baseIOR[ 1 ] < iridescenceIOR ) phi23[ 1 ] = PI;
		if ( baseIOR[ 2 ] < iridescenceIOR ) phi23[ 2 ] = PI;
		float OPD = 2.0 * iridescenceIOR * thinFilmThickness * cosTheta2;
		vec3 phi = vec3( phi21 ) + phi23;
		vec3 R123 = clamp( R12 * R23, 1e-5, 0.9999 );
		vec3 r123 = sqrt( R123 );
		vec3 Rs = pow2( T121 ) * R23 / ( vec3( 1.0 ) - R123 );
		vec3 C0 = R12 + Rs;
		I = C0;
		vec3 Cm = Rs - T121;
		for ( int m = 1; m <= 2; ++ m ) {
			Cm *= r123;
			vec3 Sm = 2.0 * evalSensitivity( float( m ) * OPD, float( m ) * phi );
			I += Cm * Sm;
		}
		return max( I, vec3( 0.0 ) );
	}
#endif`,xy=`#ifdef USE_BUMPMAP
	uniform sampler2D bumpMap;
	uniform float bumpScale;
	vec2 dHdxy_fwd() {
		vec2 dSTdx = dFdx( vBumpMapUv );
		vec2 dSTdy = dFdy( vBumpMapUv );
		float Hll = bumpScale * texture2D( bumpMap, vBumpMapUv ).x;
		float dBx = bumpScale * texture2D( bumpMap, vBumpMapUv + dSTdx ).x - Hll;
		float dBy = bumpScale * texture2D( bumpMap, vBumpMapUv + dSTdy ).x - Hll;
		return vec2( dBx, dBy );
	}
	vec3 perturbNormalArb( vec3 surf_pos, vec3 surf_norm, vec2 dHdxy, float faceDirection ) {
		vec3 vSigmaX = normalize( dFdx( surf_pos.xyz ) );
		vec3 vSigmaY = normalize( dFdy( surf_pos.xyz ) );
		vec3 vN = surf_norm;
		vec3 R1 = cross( vSigmaY, vN );
		vec3 R2 = cross( vN, vSigmaX );
		float fDet = dot( vSigmaX, R1 ) * faceDirection;
		vec3 vGrad = sign( fDet ) * ( dHdxy.x * R1 + dHdxy.y * R2 );
		return normalize( abs( fDet ) * surf_norm - vGrad );
	}
#endif`,vy=`#if NUM_CLIPPING_PLANES > 0
	vec4 plane;
	#ifdef ALPHA_TO_COVERAGE
		float distanceToPlane, distanceGradient;
		float clipOpacity = 1.0;
		#pragma unroll_loop_start
		for ( int i = 0; i < UNION_CLIPPING_PLANES; i ++ ) {
			plane = clippingPlanes[ i ];
			distanceToPlane = - dot( vClipPosition, plane.xyz ) + plane.w;
			distanceGradient = fwidth( distanceToPlane ) / 2.0;
			clipOpacity *= smoothstep( - distanceGradient, distanceGradient, distanceToPlane );
			if ( clipOpacity == 0.0 ) discard;
		}
		#pragma unroll_loop_end
		#if UNION_CLIPPING_PLANES < NUM_CLIPPING_PLANES
			float unionClipOpacity = 1.0;
			#pragma unroll_loop_start
			for ( int i = UNION_CLIPPING_PLANES; i < NUM_CLIPPING_PLANES; i ++ ) {
				plane = clippingPlanes[ i ];
				distanceToPlane = - dot( vClipPosition, plane.xyz ) + plane.w;
				distanceGradient = fwidth( distanceToPlane ) / 2.0;
				unionClipOpacity *= 1.0 - smoothstep( - distanceGradient, distanceGradient, distanceToPlane );
			}
			#pragma unroll_loop_end
			clipOpacity *= 1.0 - unionClipOpacity;
		#endif
		diffuseColor.a *= clipOpacity;
		if ( diffuseColor.a == 0.0 ) discard;
	#else
		#pragma unroll_loop_start
		for ( int i = 0; i < UNION_CLIPPING_PLANES; i ++ ) {
			plane = clippingPlanes[ i ];
			if ( dot( vClipPosition, plane.xyz ) > plane.w ) discard;
		}
		#pragma unroll_loop_end
		#if UNION_CLIPPING_PLANES < NUM_CLIPPING_PLANES
			bool clipped = true;
			#pragma unroll_loop_start
			for ( int i = UNION_CLIPPING_PLANES; i < NUM_CLIPPING_PLANES; i ++ ) {
				plane = clippingPlanes[ i ];
				clipped = ( dot( vClipPosition, plane.xyz ) > plane.w ) && clipped;
			}
			#pragma unroll_loop_end
			if ( clipped ) discard;
		#endif
	#endif
#endif`,yy=`#if NUM_CLIPPING_PLANES > 0
	varying vec3 vClipPosition;
	uniform vec4 clippingPlanes[ NUM_CLIPPING_PLANES ];
#endif`,by=`#if NUM_CLIPPING_PLANES > 0
	varying vec3 vClipPosition;
#endif`,Sy=`#if NUM_CLIPPING_PLANES > 0
	vClipPosition = - mvPosition.xyz;
#endif`,My=`#if defined( USE_COLOR ) || defined( USE_COLOR_ALPHA )
	diffuseColor *= vColor;
#endif`,wy=`#if defined( USE_COLOR ) || defined( USE_COLOR_ALPHA )
	varying vec4 vColor;
#endif`,Ey=`#if defined( USE_COLOR ) || defined( USE_COLOR_ALPHA ) || defined( USE_INSTANCING_COLOR ) || defined( USE_BATCHING_COLOR )
	varying vec4 vColor;
#endif`,Ty=`#if defined( USE_COLOR ) || defined( USE_COLOR_ALPHA ) || defined( USE_INSTANCING_COLOR ) || defined( USE_BATCHING_COLOR )
	vColor = vec4( 1.0 );
#endif
#ifdef USE_COLOR_ALPHA
	vColor *= color;
#elif defined( USE_COLOR )
	vColor.rgb *= color;
#endif
#ifdef USE_INSTANCING_COLOR
	vColor.rgb *= instanceColor.rgb;
#endif
#ifdef USE_BATCHING_COLOR
	vColor *= getBatchingColor( getIndirectIndex( gl_DrawID ) );
#endif`,Ay=`#define PI 3.141592653589793
#define PI2 6.283185307179586
#define PI_HALF 1.5707963267948966
#define RECIPROCAL_PI 0.3183098861837907
#define RECIPROCAL_PI2 0.15915494309189535
#define EPSILON 1e-6
#ifndef saturate
#define saturate( a ) clamp( a, 0.0, 1.0 )
#endif
#define whiteComplement( a ) ( 1.0 - saturate( a ) )
float pow2( const in float x ) { return x*x; }
vec3 pow2( const in vec3 x ) { return x*x; }
float pow3( const in float x ) { return x*x*x; }
float pow4( const in float x ) { float x2 = x*x; return x2*x2; }
float max3( const in vec3 v ) { return max( max( v.x, v.y ), v.z ); }
float average( const in vec3 v ) { return dot( v, vec3( 0.3333333 ) ); }
highp float rand( const in vec2 uv ) {
	const highp float a = 12.9898, b = 78.233, c = 43758.5453;
	highp float dt = dot( uv.xy, vec2( a,b ) ), sn = mod( dt, PI );
	return fract( sin( sn ) * c );
}
#ifdef HIGH_PRECISION
	float precisionSafeLength( vec3 v ) { return length( v ); }
#else
	float precisionSafeLength( vec3 v ) {
		float maxComponent = max3( abs( v ) );
		return length( v / maxComponent ) * maxComponent;
	}
#endif
struct IncidentLight {
	vec3 color;
	vec3 direction;
	bool visible;
};
struct ReflectedLight {
	vec3 directDiffuse;
	vec3 directSpecular;
	vec3 indirectDiffuse;
	vec3 indirectSpecular;
};
#ifdef USE_ALPHAHASH
	varying vec3 vPosition;
#endif
vec3 transformDirection( in vec3 dir, in mat4 matrix ) {
	return normalize( ( matrix * vec4( dir, 0.0 ) ).xyz );
}
#define inverseTransformDirection transformDirectionByInverseViewMatrix
vec3 transformNormalByInverseViewMatrix( in vec3 normal, in mat4 viewMatrix ) {
	return normalize( ( vec4( normal, 0.0 ) * viewMatrix ).xyz );
}
vec3 transformDirectionByInverseViewMatrix( in vec3 dir, in mat4 viewMatrix ) {
	return normalize( ( vec4( dir, 0.0 ) * viewMatrix ).xyz );
}
bool isPerspectiveMatrix( mat4 m ) {
	return m[ 2 ][ 3 ] == - 1.0;
}
vec2 equirectUv( in vec3 dir ) {
	float u = atan( dir.z, dir.x ) * RECIPROCAL_PI2 + 0.5;
	float v = asin( clamp( dir.y, - 1.0, 1.0 ) ) * RECIPROCAL_PI + 0.5;
	return vec2( u, v );
}
vec3 BRDF_Lambert( const in vec3 diffuseColor ) {
	return RECIPROCAL_PI * diffuseColor;
}
vec3 F_Schlick( const in vec3 f0, const in float f90, const in float dotVH ) {
	float fresnel = exp2( ( - 5.55473 * dotVH - 6.98316 ) * dotVH );
	return f0 * ( 1.0 - fresnel ) + ( f90 * fresnel );
}
float F_Schlick( const in float f0, const in float f90, const in float dotVH ) {
	float fresnel = exp2( ( - 5.55473 * dotVH - 6.98316 ) * dotVH );
	return f0 * ( 1.0 - fresnel ) + ( f90 * fresnel );
} // validated`,Ry=`vec3 transformedNormal = objectNormal;
#ifdef USE_TANGENT
	vec3 transformedTangent = objectTangent;
#endif
#ifdef USE_BATCHING
	mat3 bm = mat3( batchingMatrix );
	transformedNormal /= vec3( dot( bm[ 0 ], bm[ 0 ] ), dot( bm[ 1 ], bm[ 1 ] ), dot( bm[ 2 ], bm[ 2 ] ) );
	transformedNormal = bm * transformedNormal;
	#ifdef USE_TANGENT
		transformedTangent = bm * transformedTangent;
	#endif
#endif
#ifdef USE_INSTANCING
	mat3 im = mat3( instanceMatrix );
	transformedNormal /= vec3( dot( im[ 0 ], im[ 0 ] ), dot( im[ 1 ], im[ 1 ] ), dot( im[ 2 ], im[ 2 ] ) );
	transformedNormal = im * transformedNormal;
	#ifdef USE_TANGENT
		transformedTangent = im * transformedTangent;
	#endif
#endif
transformedNormal = normalMatrix * transformedNormal;
#ifdef FLIP_SIDED
	transformedNormal = - transformedNormal;
#endif
#ifdef USE_TANGENT
	transformedTangent = ( modelViewMatrix * vec4( transformedTangent, 0.0 ) ).xyz;
#endif`,Cy=`#ifdef USE_DISPLACEMENTMAP
	uniform sampler2D displacementMap;
	uniform float displacementScale;
	uniform float displacementBias;
#endif`,Py=`#ifdef USE_DISPLACEMENTMAP
	transformed += normalize( objectNormal ) * ( texture2D( displacementMap, vDisplacementMapUv ).x * displacementScale + displacementBias );
#endif`,Iy=`#ifdef USE_EMISSIVEMAP
	vec4 emissiveColor = texture2D( emissiveMap, vEmissiveMapUv );
	#ifdef DECODE_VIDEO_TEXTURE_EMISSIVE
		emissiveColor = sRGBTransferEOTF( emissiveColor );
	#endif
	totalEmissiveRadiance *= emissiveColor.rgb;
#endif`,Ly=`#ifdef USE_EMISSIVEMAP
	uniform sampler2D emissiveMap;
#endif`,Dy="gl_FragColor = linearToOutputTexel( gl_FragColor );",Ny=`vec4 LinearTransferOETF( in vec4 value ) {
	return value;
}
vec4 sRGBTransferEOTF( in vec4 value ) {
	return vec4( mix( pow( value.rgb * 0.9478672986 + vec3( 0.0521327014 ), vec3( 2.4 ) ), value.rgb * 0.0773993808, vec3( lessThanEqual( value.rgb, vec3( 0.04045 ) ) ) ), value.a );
}
vec4 sRGBTransferOETF( in vec4 value ) {
	return vec4( mix( pow( value.rgb, vec3( 0.41666 ) ) * 1.055 - vec3( 0.055 ), value.rgb * 12.92, vec3( lessThanEqual( value.rgb, vec3( 0.0031308 ) ) ) ), value.a );
}`,Uy=`#ifdef USE_ENVMAP
	#ifdef ENV_WORLDPOS
		vec3 cameraToFrag;
		if ( isOrthographic ) {
			cameraToFrag = normalize( vec3( - viewMatrix[ 0 ][ 2 ], - viewMatrix[ 1 ][ 2 ], - viewMatrix[ 2 ][ 2 ] ) );
		} else {
			cameraToFrag = normalize( vWorldPosition - cameraPosition );
		}
		vec3 worldNormal = transformNormalByInverseViewMatrix( normal, viewMatrix );
		#ifdef ENVMAP_MODE_REFLECTION
			vec3 reflectVec = reflect( cameraToFrag, worldNormal );
		#else
			vec3 reflectVec = refract( cameraToFrag, worldNormal, refractionRatio );
		#endif
	#else
		vec3 reflectVec = vReflect;
	#endif
	#ifdef ENVMAP_TYPE_CUBE
		vec4 envColor = textureCube( envMap, envMapRotation * reflectVec );
		#ifdef ENVMAP_BLENDING_MULTIPLY
			outgoingLight = mix( outgoingLight, outgoingLight * envColor.xyz, specularStrength * reflectivity );
		#elif defined( ENVMAP_BLENDING_MIX )
			outgoingLight = mix( outgoingLight, envColor.xyz, specularStrength * reflectivity );
		#elif defined( ENVMAP_BLENDING_ADD )
			outgoingLight += envColor.xyz * specularStrength * reflectivity;
		#endif
	#endif
#endif`,Oy=`#ifdef USE_ENVMAP
	uniform float envMapIntensity;
	uniform mat3 envMapRotation;
	uniform samplerCube envMap;
	#ifdef ENVMAP_TYPE_PMREM
		float roughnessToMip( const in float roughness ) {
			float r = clamp( roughness, 0.0, 1.0 );
			return ENVMAP_MAX_LOD * r * ( 2.0 - r );
		}
	#endif
#endif`,Fy=`#ifdef USE_ENVMAP
	uniform float reflectivity;
	#if defined( USE_BUMPMAP ) || defined( USE_NORMALMAP ) || defined( PHONG ) || defined( LAMBERT )
		#define ENV_WORLDPOS
	#endif
	#ifdef ENV_WORLDPOS
		varying vec3 vWorldPosition;
		uniform float refractionRatio;
	#else
		varying vec3 vReflect;
	#endif
#endif`,By=`#ifdef USE_ENVMAP
	#if defined( USE_BUMPMAP ) || defined( USE_NORMALMAP ) || defined( PHONG ) || defined( LAMBERT )
		#define ENV_WORLDPOS
	#endif
	#ifdef ENV_WORLDPOS
		
		varying vec3 vWorldPosition;
	#else
		varying vec3 vReflect;
		uniform float refractionRatio;
	#endif
#endif`,ky=`#ifdef USE_ENVMAP
	#ifdef ENV_WORLDPOS
		vWorldPosition = worldPosition.xyz;
	#else
		vec3 cameraToVertex;
		if ( isOrthographic ) {
			cameraToVertex = normalize( vec3( - viewMatrix[ 0 ][ 2 ], - viewMatrix[ 1 ][ 2 ], - viewMatrix[ 2 ][ 2 ] ) );
		} else {
			cameraToVertex = normalize( worldPosition.xyz - cameraPosition );
		}
		vec3 worldNormal = transformNormalByInverseViewMatrix( transformedNormal, viewMatrix );
		#ifdef ENVMAP_MODE_REFLECTION
			vReflect = reflect( cameraToVertex, worldNormal );
		#else
			vReflect = refract( cameraToVertex, worldNormal, refractionRatio );
		#endif
	#endif
#endif`,zy=`#ifdef USE_FOG
	vFogDepth = - mvPosition.z;
#endif`,Hy=`#ifdef USE_FOG
	varying float vFogDepth;
#endif`,Vy=`#ifdef USE_FOG
	#ifdef FOG_EXP2
		float fogFactor = 1.0 - exp( - fogDensity * fogDensity * vFogDepth * vFogDepth );
	#else
		float fogFactor = smoothstep( fogNear, fogFar, vFogDepth );
	#endif
	gl_FragColor.rgb = mix( gl_FragColor.rgb, fogColor, fogFactor );
#endif`,Gy=`#ifdef USE_FOG
	uniform vec3 fogColor;
	varying float vFogDepth;
	#ifdef FOG_EXP2
		uniform float fogDensity;
	#else
		uniform float fogNear;
		uniform float fogFar;
	#endif
#endif`,Wy=`#ifdef USE_GRADIENTMAP
	uniform sampler2D gradientMap;
#endif
vec3 getGradientIrradiance( vec3 normal, vec3 lightDirection ) {
	float dotNL = dot( normal, lightDirection );
	vec2 coord = vec2( dotNL * 0.5 + 0.5, 0.0 );
	#ifdef USE_GRADIENTMAP
		return vec3( texture2D( gradientMap, coord ).r );
	#else
		vec2 fw = fwidth( coord ) * 0.5;
		return mix( vec3( 0.7 ), vec3( 1.0 ), smoothstep( 0.7 - fw.x, 0.7 + fw.x, coord.x ) );
	#endif
}`,Xy=`#ifdef USE_LIGHTMAP
	uniform sampler2D lightMap;
	uniform float lightMapIntensity;
#endif`,qy=`LambertMaterial material;
material.diffuseColor = diffuseColor.rgb;
material.specularStrength = specularStrength;`,Yy=`varying vec3 vViewPosition;
struct LambertMaterial {
	vec3 diffuseColor;
	float specularStrength;
};
void RE_Direct_Lambert( const in IncidentLight directLight, const in vec3 geometryPosition, const in vec3 geometryNormal, const in vec3 geometryViewDir, const in vec3 geometryClearcoatNormal, const in LambertMaterial material, inout ReflectedLight reflectedLight ) {
	float dotNL = saturate( dot( geometryNormal, directLight.direction ) );
	vec3 irradiance = dotNL * directLight.color;
	reflectedLight.directDiffuse += irradiance * BRDF_Lambert( material.diffuseColor );
}
void RE_IndirectDiffuse_Lambert( const in vec3 irradiance, const in vec3 geometryPosition, const in vec3 geometryNormal, const in vec3 geometryViewDir, const in vec3 geometryClearcoatNormal, const in LambertMaterial material, inout ReflectedLight reflectedLight ) {
	reflectedLight.indirectDiffuse += irradiance * BRDF_Lambert( material.diffuseColor );
}
#define RE_Direct				RE_Direct_Lambert
#define RE_IndirectDiffuse		RE_IndirectDiffuse_Lambert`,$y=`uniform bool receiveShadow;
uniform vec3 ambientLightColor;
#if defined( USE_LIGHT_PROBES )
	uniform vec3 lightProbe[ 9 ];
#endif
vec3 shGetIrradianceAt( in vec3 normal, in vec3 shCoefficients[ 9 ] ) {
	float x = normal.x, y = normal.y, z = normal.z;
	vec3 result = shCoefficients[ 0 ] * 0.886227;
	result += shCoefficients[ 1 ] * 2.0 * 0.511664 * y;
	result += shCoefficients[ 2 ] * 2.0 * 0.511664 * z;
	result += shCoefficients[ 3 ] * 2.0 * 0.511664 * x;
	result += shCoefficients[ 4 ] * 2.0 * 0.429043 * x * y;
	result += shCoefficients[ 5 ] * 2.0 * 0.429043 * y * z;
	result += shCoefficients[ 6 ] * ( 0.743125 * z * z - 0.247708 );
	result += shCoefficients[ 7 ] * 2.0 * 0.429043 * x * z;
	result += shCoefficients[ 8 ] * 0.429043 * ( x * x - y * y );
	return result;
}
vec3 getLightProbeIrradiance( const in vec3 lightProbe[ 9 ], const in vec3 normal ) {
	vec3 worldNormal = transformNormalByInverseViewMatrix( normal, viewMatrix );
	vec3 irradiance = shGetIrradianceAt( worldNormal, lightProbe );
	return irradiance;
}
vec3 getAmbientLightIrradiance( const in vec3 ambientLightColor ) {
	vec3 irradiance = ambientLightColor;
	return irradiance;
}
float getDistanceAttenuation( const in float lightDistance, const in float cutoffDistance, const in float decayExponent ) {
	float distanceFalloff = 1.0 / max( pow( lightDistance, decayExponent ), 0.01 );
	if ( cutoffDistance > 0.0 ) {
		distanceFalloff *= pow2( saturate( 1.0 - pow4( lightDistance / cutoffDistance ) ) );
	}
	return distanceFalloff;
}
float getSpotAttenuation( const in float coneCosine, const in float penumbraCosine, const in float angleCosine ) {
	return smoothstep( coneCosine, penumbraCosine, angleCosine );
}
#if NUM_SUN_LIGHTS > 0
	struct SunLight {
		vec3 direction;
		vec3 color;
	};
	uniform SunLight sunLights[ NUM_SUN_LIGHTS ];
	void getSunLightInfo( const in SunLight sunLight, out IncidentLight light ) {
		light.color = sunLight.color;
		light.direction = sunLight.direction;
		light.visible = true;
	}
#endif
#if NUM_DIR_LIGHTS > 0
	struct DirectionalLight {
		vec3 direction;
		vec3 color;
	};
	uniform DirectionalLight directionalLights[ NUM_DIR_LIGHTS ];
	void getDirectionalLightInfo( const in DirectionalLight directionalLight, out IncidentLight light ) {
		light.color = directionalLight.color;
		light.direction = directionalLight.direction;
		light.visible = true;
	}
#endif
#if NUM_POINT_LIGHTS > 0
	struct PointLight {
		vec3 position;
		vec3 color;
		float distance;
		float decay;
	};
	uniform PointLight pointLights[ NUM_POINT_LIGHTS ];
	void getPointLightInfo( const in PointLight pointLight, const in vec3 geometryPosition, out IncidentLight light ) {
		vec3 lVector = pointLight.position - geometryPosition;
		light.direction = normalize( lVector );
		float lightDistance = length( lVector );
		light.color = pointLight.color;
		light.color *= getDistanceAttenuation( lightDistance, pointLight.distance, pointLight.decay );
		light.visible = ( light.color != vec3( 0.0 ) );
	}
#endif
#if NUM_SPOT_LIGHTS > 0
	struct SpotLight {
		vec3 position;
		vec3 direction;
		vec3 color;
		float distance;
		float decay;
		float coneCos;
		float penumbraCos;
	};
	uniform SpotLight spotLights[ NUM_SPOT_LIGHTS ];
	void getSpotLightInfo( const in SpotLight spotLight, const in vec3 geometryPosition, out IncidentLight light ) {
		vec3 lVector = spotLight.position - geometryPosition;
		light.direction = normalize( lVector );
		float angleCos = dot( light.direction, spotLight.direction );
		float spotAttenuation = getSpotAttenuation( spotLight.coneCos, spotLight.penumbraCos, angleCos );
		if ( spotAttenuation > 0.0 ) {
			float lightDistance = length( lVector );
			light.color = spotLight.color * spotAttenuation;
			light.color *= getDistanceAttenuation( lightDistance, spotLight.distance, spotLight.decay );
			light.visible = ( light.color != vec3( 0.0 ) );
		} else {
			light.color = vec3( 0.0 );
			light.visible = false;
		}
	}
#endif
#if NUM_RECT_AREA_LIGHTS > 0
	struct RectAreaLight {
		vec3 color;
		vec3 position;
		vec3 halfWidth;
		vec3 halfHeight;
	};
	uniform sampler2D ltc_1;	uniform sampler2D ltc_2;
	uniform RectAreaLight rectAreaLights[ NUM_RECT_AREA_LIGHTS ];
#endif
#if NUM_HEMI_LIGHTS > 0
	struct HemisphereLight {
		vec3 direction;
		vec3 skyColor;
		vec3 groundColor;
	};
	uniform HemisphereLight hemisphereLights[ NUM_HEMI_LIGHTS ];
	vec3 getHemisphereLightIrradiance( const in HemisphereLight hemiLight, const in vec3 normal ) {
		float dotNL = dot( normal, hemiLight.direction );
		float hemiDiffuseWeight = 0.5 * dotNL + 0.5;
		vec3 irradiance = mix( hemiLight.groundColor, hemiLight.skyColor, hemiDiffuseWeight );
		return irradiance;
	}
#endif
#include <lightprobes_pars_fragment>`,Zy=`#ifdef USE_ENVMAP
	vec3 getIBLIrradiance( const in vec3 normal ) {
		#ifdef ENVMAP_TYPE_PMREM
			vec3 worldNormal = transformNormalByInverseViewMatrix( normal, viewMatrix );
			vec4 envMapColor = textureLod( envMap, envMapRotation * worldNormal, ENVMAP_MAX_LOD );
			return PI * envMapColor.rgb * envMapIntensity;
		#else
			return vec3( 0.0 );
		#endif
	}
	vec3 getIBLRadiance( const in vec3 viewDir, const in vec3 normal, const in float roughness ) {
		#ifdef ENVMAP_TYPE_PMREM
			vec3 reflectVec = reflect( - viewDir, normal );
			reflectVec = normalize( mix( reflectVec, normal, pow4( roughness ) ) );
			reflectVec = transformDirectionByInverseViewMatrix( reflectVec, viewMatrix );
			vec4 envMapColor = textureLod( envMap, envMapRotation * reflectVec, roughnessToMip( roughness ) );
			return envMapColor.rgb * envMapIntensity;
		#else
			return vec3( 0.0 );
		#endif
	}
	#ifdef USE_RETROREFLECTION
		vec3 getIBLRetroRadiance( const in vec3 viewDir, const in vec3 normal, const in float roughness ) {
			#ifdef ENVMAP_TYPE_PMREM
				vec3 retroVec = normalize( mix( viewDir, normal, pow4( roughness ) ) );
				retroVec = transformDirectionByInverseViewMatrix( retroVec, viewMatrix );
				vec4 envMapColor = textureLod( envMap, envMapRotation * retroVec, roughnessToMip( roughness ) );
				return envMapColor.rgb * envMapIntensity;
			#else
				return vec3( 0.0 );
			#endif
		}
	#endif
	#ifdef USE_ANISOTROPY
		vec3 getIBLAnisotropyRadiance( const in vec3 viewDir, const in vec3 normal, const in float roughness, const in vec3 bitangent, const in float anisotropy ) {
			#ifdef ENVMAP_TYPE_PMREM
				vec3 bentNormal = cross( bitangent, viewDir );
				bentNormal = normalize( cross( bentNormal, bitangent ) );
				bentNormal = normalize( mix( bentNormal, normal, pow2( pow2( 1.0 - anisotropy * ( 1.0 - roughness ) ) ) ) );
				return getIBLRadiance( viewDir, bentNormal, roughness );
			#else
				return vec3( 0.0 );
			#endif
		}
		#ifdef USE_RETROREFLECTION
			vec3 getIBLAnisotropyRetroRadiance( const in vec3 viewDir, const in vec3 normal, const in float roughness, const in vec3 bitangent, const in float anisotropy ) {
				#ifdef ENVMAP_TYPE_PMREM
					vec3 bentNormal = cross( bitangent, viewDir );
					bentNormal = normalize( cross( bentNormal, bitangent ) );
					bentNormal = normalize( mix( bentNormal, normal, pow2( pow2( 1.0 - anisotropy * ( 1.0 - roughness ) ) ) ) );
					return getIBLRetroRadiance( viewDir, bentNormal, roughness );
				#else
					return vec3( 0.0 );
				#endif
			}
		#endif
	#endif
#endif`,Ky=`ToonMaterial material;
material.diffuseColor = diffuseColor.rgb;`,Jy=`varying vec3 vViewPosition;
struct ToonMaterial {
	vec3 diffuseColor;
};
void RE_Direct_Toon( const in IncidentLight directLight, const in vec3 geometryPosition, const in vec3 geometryNormal, const in vec3 geometryViewDir, const in vec3 geometryClearcoatNormal, const in ToonMaterial material, inout ReflectedLight reflectedLight ) {
	vec3 irradiance = getGradientIrradiance( geometryNormal, directLight.direction ) * directLight.color;
	reflectedLight.directDiffuse += irradiance * BRDF_Lambert( material.diffuseColor );
}
void RE_IndirectDiffuse_Toon( const in vec3 irradiance, const in vec3 geometryPosition, const in vec3 geometryNormal, const in vec3 geometryViewDir, const in vec3 geometryClearcoatNormal, const in ToonMaterial material, inout ReflectedLight reflectedLight ) {
	reflectedLight.indirectDiffuse += irradiance * BRDF_Lambert( material.diffuseColor );
}
#define RE_Direct				RE_Direct_Toon
#define RE_IndirectDiffuse		RE_IndirectDiffuse_Toon`,jy=`BlinnPhongMaterial material;
material.diffuseColor = diffuseColor.rgb;
material.specularColor = specular;
material.specularShininess = shininess;
material.specularStrength = specularStrength;`,Qy=`varying vec3 vViewPosition;
struct BlinnPhongMaterial {
	vec3 diffuseColor;
	vec3 specularColor;
	float specularShininess;
	float specularStrength;
};
void RE_Direct_BlinnPhong( const in IncidentLight directLight, const in vec3 geometryPosition, const in vec3 geometryNormal, const in vec3 geometryViewDir, const in vec3 geometryClearcoatNormal, const in BlinnPhongMaterial material, inout ReflectedLight reflectedLight ) {
	float dotNL = saturate( dot( geometryNormal, directLight.direction ) );
	vec3 irradiance = dotNL * directLight.color;
	reflectedLight.directDiffuse += irradiance * BRDF_Lambert( material.diffuseColor );
	reflectedLight.directSpecular += irradiance * BRDF_BlinnPhong( directLight.direction, geometryViewDir, geometryNormal, material.specularColor, material.specularShininess ) * material.specularStrength;
}
void RE_IndirectDiffuse_BlinnPhong( const in vec3 irradiance, const in vec3 geometryPosition, const in vec3 geometryNormal, const in vec3 geometryViewDir, const in vec3 geometryClearcoatNormal, const in BlinnPhongMaterial material, inout ReflectedLight reflectedLight ) {
	reflectedLight.indirectDiffuse += irradiance * BRDF_Lambert( material.diffuseColor );
}
#define RE_Direct				RE_Direct_BlinnPhong
#define RE_IndirectDiffuse		RE_IndirectDiffuse_BlinnPhong`,eb=`PhysicalMaterial material;
material.diffuseColor = diffuseColor.rgb;
material.diffuseContribution = diffuseColor.rgb * ( 1.0 - metalnessFactor );
material.metalness = metalnessFactor;
vec3 dxy = max( abs( dFdx( nonPerturbedNormal ) ), abs( dFdy( nonPerturbedNormal ) ) );
float geometryRoughness = max( max( dxy.x, dxy.y ), dxy.z );
material.roughness = max( roughnessFactor, 0.045 );
material.roughness += geometryRoughness;
material.roughness = min( material.roughness, 1.0 );
#ifdef USE_DIFFUSE_ROUGHNESS
	float diffuseRoughnessFactor = diffuseRoughness;
	#ifdef USE_DIFFUSE_ROUGHNESSMAP
		diffuseRoughnessFactor *= texture2D( diffuseRoughnessMap, vDiffuseRoughnessMapUv ).r;
	#endif
	material.diffuseRoughness = saturate( diffuseRoughnessFactor );
#endif
#ifdef IOR
	material.ior = ior;
	#ifdef USE_SPECULAR
		float specularIntensityFactor = specularIntensity;
		vec3 specularColorFactor = specularColor;
		#ifdef USE_SPECULAR_COLORMAP
			specularColorFactor *= texture2D( specularColorMap, vSpecularColorMapUv ).rgb;
		#endif
		#ifdef USE_SPECULAR_INTENSITYMAP
			specularIntensityFactor *= texture2D( specularIntensityMap, vSpecularIntensityMapUv ).a;
		#endif
		material.specularF90 = mix( specularIntensityFactor, 1.0, metalnessFactor );
	#else
		float specularIntensityFactor = 1.0;
		vec3 specularColorFactor = vec3( 1.0 );
		material.specularF90 = 1.0;
	#endif
	material.specularColor = min( pow2( ( material.ior - 1.0 ) / ( material.ior + 1.0 ) ) * specularColorFactor, vec3( 1.0 ) ) * specularIntensityFactor;
	material.specularColorBlended = mix( material.specularColor, diffuseColor.rgb, metalnessFactor );
#else
	material.specularColor = vec3( 0.04 );
	material.specularColorBlended = mix( material.specularColor, diffuseColor.rgb, metalnessFactor );
	material.specularF90 = 1.0;
#endif
#ifdef USE_CLEARCOAT
	material.clearcoat = clearcoat;
	material.clearcoatRoughness = clearcoatRoughness;
	material.clearcoatF0 = vec3( 0.04 );
	material.clearcoatF90 = 1.0;
	#ifdef USE_CLEARCOATMAP
		material.clearcoat *= texture2D( clearcoatMap, vClearcoatMapUv ).x;
	#endif
	#ifdef USE_CLEARCOAT_ROUGHNESSMAP
		material.clearcoatRoughness *= texture2D( clearcoatRoughnessMap, vClearcoatRoughnessMapUv ).y;
	#endif
	material.clearcoat = saturate( material.clearcoat );	material.clearcoatRoughness = max( material.clearcoatRoughness, 0.045 );
	material.clearcoatRoughness += geometryRoughness;
	material.clearcoatRoughness = min( material.clearcoatRoughness, 1.0 );
#endif
#ifdef USE_DISPERSION
	material.dispersion = dispersion;
#endif
#ifdef USE_RETROREFLECTION
	material.retroreflectivity = retroreflectivity;
#endif
#ifdef USE_IRIDESCENCE
	material.iridescence = iridescence;
	material.iridescenceIOR = iridescenceIOR;
	#ifdef USE_IRIDESCENCEMAP
		material.iridescence *= texture2D( iridescenceMap, vIridescenceMapUv ).r;
	#endif
	#ifdef USE_IRIDESCENCE_THICKNESSMAP
		material.iridescenceThickness = (iridescenceThicknessMaximum - iridescenceThicknessMinimum) * texture2D( iridescenceThicknessMap, vIridescenceThicknessMapUv ).g + iridescenceThicknessMinimum;
	#else
		material.iridescenceThickness = iridescenceThicknessMaximum;
	#endif
#endif
#ifdef USE_SHEEN
	material.sheenColor = sheenColor;
	#ifdef USE_SHEEN_COLORMAP
		material.sheenColor *= texture2D( sheenColorMap, vSheenColorMapUv ).rgb;
	#endif
	material.sheenRoughness = clamp( sheenRoughness, 0.0001, 1.0 );
	#ifdef USE_SHEEN_ROUGHNESSMAP
		material.sheenRoughness *= texture2D( sheenRoughnessMap, vSheenRoughnessMapUv ).a;
	#endif
#endif
#ifdef USE_ANISOTROPY
	#ifdef USE_ANISOTROPYMAP
		mat2 anisotropyMat = mat2( anisotropyVector.x, anisotropyVector.y, - anisotropyVector.y, anisotropyVector.x );
		vec3 anisotropyPolar = texture2D( anisotropyMap, vAnisotropyMapUv ).rgb;
		vec2 anisotropyV = anisotropyMat * normalize( 2.0 * anisotropyPolar.rg - vec2( 1.0 ) ) * anisotropyPolar.b;
	#else
		vec2 anisotropyV = anisotropyVector;
	#endif
	material.anisotropy = length( anisotropyV );
	if( material.anisotropy == 0.0 ) {
		anisotropyV = vec2( 1.0, 0.0 );
	} else {
		anisotropyV /= material.anisotropy;
		material.anisotropy = saturate( material.anisotropy );
	}
	material.alphaT = mix( pow2( material.roughness ), 1.0, pow2( material.anisotropy ) );
	material.anisotropyT = tbn[ 0 ] * anisotropyV.x + tbn[ 1 ] * anisotropyV.y;
	material.anisotropyB = tbn[ 1 ] * anisotropyV.x - tbn[ 0 ] * anisotropyV.y;
#endif`,tb=`uniform sampler2D dfgLUT;
struct PhysicalMaterial {
	vec3 diffuseColor;
	vec3 diffuseContribution;
	vec3 specularColor;
	vec3 specularColorBlended;
	float roughness;
	float metalness;
	float specularF90;
	float dispersion;
	vec2 dfg;
	vec3 multiScatteringCompensation;
	#ifdef USE_DIFFUSE_ROUGHNESS
		float diffuseRoughness;
	#endif
	#ifdef USE_RETROREFLECTION
		float retroreflectivity;
	#endif
	#ifdef USE_CLEARCOAT
		float clearcoat;
		float clearcoatRoughness;
		vec3 clearcoatF0;
		float clearcoatF90;
	#endif
	#ifdef USE_IRIDESCENCE
		float iridescence;
		float iridescenceIOR;
		float iridescenceThickness;
		vec3 iridescenceFresnel;
		vec3 iridescenceF0Dielectric;
		vec3 iridescenceF0Metallic;
	#endif
	#ifdef USE_SHEEN
		vec3 sheenColor;
		float sheenRoughness;
	#endif
	#ifdef IOR
		float ior;
	#endif
	#ifdef USE_TRANSMISSION
		float transmission;
		float transmissionAlpha;
		float thickness;
		float attenuationDistance;
		vec3 attenuationColor;
	#endif
	#ifdef USE_ANISOTROPY
		float anisotropy;
		float alphaT;
		vec3 anisotropyT;
		vec3 anisotropyB;
	#endif
};
vec3 clearcoatSpecularDirect = vec3( 0.0 );
vec3 clearcoatSpecularIndirect = vec3( 0.0 );
vec3 sheenSpecularDirect = vec3( 0.0 );
vec3 sheenSpecularIndirect = vec3(0.0 );
vec3 Schlick_to_F0( const in vec3 f, const in float f90, const in float dotVH ) {
    float x = clamp( 1.0 - dotVH, 0.0, 1.0 );
    float x2 = x * x;
    float x5 = clamp( x * x2 * x2, 0.0, 0.9999 );
    return ( f - vec3( f90 ) * x5 ) / ( 1.0 - x5 );
}
#ifdef USE_DIFFUSE_ROUGHNESS
	const float EON_EPSILON = 1e-7;
	float FON_DirectionalAlbedo( const in float mu, const in float roughness, const in float A ) {
		float muComp = 1.0 - mu;
		float gOverPi = muComp * ( 0.0571085289 + muComp * ( 0.491881867 + muComp * ( - 0.332181442 + muComp * 0.0714429953 ) ) );
		return A * ( 1.0 + roughness * gOverPi );
	}
	vec3 BRDF_EON( const in vec3 lightDir, const in vec3 viewDir, const in vec3 normal, const in vec3 diffuseColor, const in float roughness ) {
		vec3 rho = saturate( diffuseColor );
		if ( roughness <= EON_EPSILON ) return BRDF_Lambert( rho );
		float dotNL = saturate( dot( normal, lightDir ) );
		float dotNV = saturate( dot( normal, viewDir ) );
		float s = dot( lightDir, viewDir ) - dotNL * dotNV;
		float sOverT = ( s > 0.0 ) ? s / max( max( dotNL, dotNV ), EON_EPSILON ) : s;
		float A = 1.0 / ( 1.0 + ( 0.5 - 2.0 / ( 3.0 * PI ) ) * roughness );
		vec3 singleScatter = rho * RECIPROCAL_PI * A * ( 1.0 + roughness * sOverT );
		float averageAlbedo = A * ( 1.0 + ( 2.0 / 3.0 - 28.0 / ( 15.0 * PI ) ) * roughness );
		float albedoV = FON_DirectionalAlbedo( dotNV, roughness, A );
		float albedoL = FON_DirectionalAlbedo( dotNL, roughness, A );
		vec3 rhoMultiScatter = rho * rho * averageAlbedo / max( vec3( EON_EPSILON ), vec3( 1.0 ) - rho * ( 1.0 - averageAlbedo ) );
		vec3 multiScatter = rhoMultiScatter * RECIPROCAL_PI
			* max( EON_EPSILON, 1.0 - albedoV )
			* max( EON_EPSILON, 1.0 - albedoL )
			/ max( EON_EPSILON, 1.0 - averageAlbedo );
		return singleScatter + multiScatter;
	}
	vec3 EON_DirectionalAlbedo( const in vec3 diffuseColor, const in float roughness, const in float dotNV ) {
		vec3 rho = saturate( diffuseColor );
		if ( roughness <= EON_EPSILON ) return rho;
		float A = 1.0 / ( 1.0 + ( 0.5 - 2.0 / ( 3.0 * PI ) ) * roughness );
		float directionalAlbedo = FON_DirectionalAlbedo( dotNV, roughness, A );
		float averageAlbedo = A * ( 1.0 + ( 2.0 / 3.0 - 28.0 / ( 15.0 * PI ) ) * roughness );
		vec3 rhoMultiScatter = rho * rho * averageAlbedo / max( vec3( EON_EPSILON ), vec3( 1.0 ) - rho * ( 1.0 - averageAlbedo ) );
		return rho * directionalAlbedo + rhoMultiScatter * ( 1.0 - directionalAlbedo );
	}
#endif
float V_GGX_SmithCorrelated( const in float alpha, const in float dotNL, const in float dotNV ) {
	float a2 = pow2( alpha );
	float gv = dotNL * sqrt( a2 + ( 1.0 - a2 ) * pow2( dotNV ) );
	float gl = dotNV * sqrt( a2 + ( 1.0 - a2 ) * pow2( dotNL ) );
	return 0.5 / max( gv + gl, EPSILON );
}
float D_GGX( const in float alpha, const in float dotNH ) {
	float a2 = pow2( alpha );
	float denom = pow2( dotNH ) * ( a2 - 1.0 ) + 1.0;
	return RECIPROCAL_PI * a2 / pow2( denom );
}
#ifdef USE_ANISOTROPY
	float V_GGX_SmithCorrelated_Anisotropic( const in float alphaT, const in float alphaB, const in float dotTV, const in float dotBV, const in float dotTL, const in float dotBL, const in float dotNV, const in float dotNL ) {
		float gv = dotNL * length( vec3( alphaT * dotTV, alphaB * dotBV, dotNV ) );
		float gl = dotNV * length( vec3( alphaT * dotTL, alphaB * dotBL, dotNL ) );
		return 0.5 / max( gv + gl, EPSILON );
	}
	float D_GGX_Anisotropic( const in float alphaT, const in float alphaB, const in float dotNH, const in float dotTH, const in float dotBH ) {
		float a2 = alphaT * alphaB;
		highp vec3 v = vec3( alphaB * dotTH, alphaT * dotBH, a2 * dotNH );
		highp float v2 = dot( v, v );
		float w2 = a2 / v2;
		return RECIPROCAL_PI * a2 * pow2 ( w2 );
	}
#endif
#ifdef USE_CLEARCOAT
	vec3 BRDF_GGX_Clearcoat( const in vec3 lightDir, const in vec3 viewDir, const in vec3 normal, const in PhysicalMaterial material) {
		vec3 f0 = material.clearcoatF0;
		float f90 = material.clearcoatF90;
		float roughness = max( material.clearcoatRoughness, 0.045 );
		float alpha = pow2( roughness );
		vec3 halfDir = normalize( lightDir + viewDir );
		float dotNL = saturate( dot( normal, lightDir ) );
		float dotNV = saturate( dot( normal, viewDir ) );
		float dotNH = saturate( dot( normal, halfDir ) );
		float dotVH = saturate( dot( viewDir, halfDir ) );
		vec3 F = F_Schlick( f0, f90, dotVH );
		float V = V_GGX_SmithCorrelated( alpha, dotNL, dotNV );
		float D = D_GGX( alpha, dotNH );
		return F * ( V * D );
	}
#endif
vec3 BRDF_GGX( const in vec3 lightDir, const in vec3 viewDir, const in vec3 normal, const in PhysicalMaterial material ) {
	vec3 f0 = material.specularColorBlended;
	float f90 = material.specularF90;
	float roughness = max( material.roughness, 0.045 );
	float alpha = pow2( roughness );
	vec3 halfDir = normalize( lightDir + viewDir );
	float dotNL = saturate( dot( normal, lightDir ) );
	float dotNV = saturate( dot( normal, viewDir ) );
	float dotNH = saturate( dot( normal, halfDir ) );
	float dotVH = saturate( dot( viewDir, halfDir ) );
	vec3 F = F_Schlick( f0, f90, dotVH );
	#ifdef USE_IRIDESCENCE
		F = mix( F, material.iridescenceFresnel, material.iridescence );
	#endif
	#ifdef USE_ANISOTROPY
		float dotTL = dot( material.anisotropyT, lightDir );
		float dotTV = dot( material.anisotropyT, viewDir );
		float dotTH = dot( material.anisotropyT, halfDir );
		float dotBL = dot( material.anisotropyB, lightDir );
		float dotBV = dot( material.anisotropyB, viewDir );
		float dotBH = dot( material.anisotropyB, halfDir );
		float alphaT = max( material.alphaT, alpha );
		float V = V_GGX_SmithCorrelated_Anisotropic( alphaT, alpha, dotTV, dotBV, dotTL, dotBL, dotNV, dotNL );
		float D = D_GGX_Anisotropic( alphaT, alpha, dotNH, dotTH, dotBH );
	#else
		float V = V_GGX_SmithCorrelated( alpha, dotNL, dotNV );
		float D = D_GGX( alpha, dotNH );
	#endif
	return F * ( V * D );
}
vec2 LTC_Uv( const in vec3 N, const in vec3 V, const in float roughness ) {
	const float LUT_SIZE = 64.0;
	const float LUT_SCALE = ( LUT_SIZE - 1.0 ) / LUT_SIZE;
	const float LUT_BIAS = 0.5 / LUT_SIZE;
	float dotNV = saturate( dot( N, V ) );
	vec2 uv = vec2( roughness, sqrt( 1.0 - dotNV ) );
	uv = uv * LUT_SCALE + LUT_BIAS;
	return uv;
}
float LTC_ClippedSphereFormFactor( const in vec3 f ) {
	float l = length( f );
	return max( ( l * l + f.z ) / ( l + 1.0 ), 0.0 );
}
vec3 LTC_EdgeVectorFormFactor( const in vec3 v1, const in vec3 v2 ) {
	float x = dot( v1, v2 );
	float y = abs( x );
	float a = 0.8543985 + ( 0.4965155 + 0.0145206 * y ) * y;
	float b = 3.4175940 + ( 4.1616724 + y ) * y;
	float v = a / b;
	float theta_sintheta = ( x > 0.0 ) ? v : 0.5 * inversesqrt( max( 1.0 - x * x, 1e-7 ) ) - v;
	return cross( v1, v2 ) * theta_sintheta;
}
vec3 LTC_Evaluate( const in vec3 N, const in vec3 V, const in vec3 P, const in mat3 mInv, const in vec3 rectCoords[ 4 ] ) {
	vec3 v1 = rectCoords[ 1 ] - rectCoords[ 0 ];
	vec3 v2 = rectCoords[ 3 ] - rectCoords[ 0 ];
	vec3 lightNormal = cross( v1, v2 );
	if( dot( lightNormal, P - rectCoords[ 0 ] ) < 0.0 ) return vec3( 0.0 );
	vec3 T1, T2;
	T1 = normalize( V - N * dot( V, N ) );
	T2 = - cross( N, T1 );
	mat3 mat = mInv * transpose( mat3( T1, T2, N ) );
	vec3 coords[ 4 ];
	coords[ 0 ] = mat * ( rectCoords[ 0 ] - P );
	coords[ 1 ] = mat * ( rectCoords[ 1 ] - P );
	coords[ 2 ] = mat * ( rectCoords[ 2 ] - P );
	coords[ 3 ] = mat * ( rectCoords[ 3 ] - P );
	coords[ 0 ] = normalize( coords[ 0 ] );
	coords[ 1 ] = normalize( coords[ 1 ] );
	coords[ 2 ] = normalize( coords[ 2 ] );
	coords[ 3 ] = normalize( coords[ 3 ] );
	vec3 vectorFormFactor = vec3( 0.0 );
	vectorFormFactor += LTC_EdgeVectorFormFactor( coords[ 0 ], coords[ 1 ] );
	vectorFormFactor += LTC_EdgeVectorFormFactor( coords[ 1 ], coords[ 2 ] );
	vectorFormFactor += LTC_EdgeVectorFormFactor( coords[ 2 ], coords[ 3 ] );
	vectorFormFactor += LTC_EdgeVectorFormFactor( coords[ 3 ], coords[ 0 ] );
	float result = LTC_ClippedSphereFormFactor( vectorFormFactor );
	return vec3( result );
}
#if defined( USE_SHEEN )
float D_Charlie( float roughness, float dotNH ) {
	float alpha = pow2( roughness );
	float invAlpha = 1.0 / alpha;
	float cos2h = dotNH * dotNH;
	float sin2h = max( 1.0 - cos2h, 0.0078125 );
	return ( 2.0 + invAlpha ) * pow( sin2h, invAlpha * 0.5 ) / ( 2.0 * PI );
}
float V_Neubelt( float dotNV, float dotNL ) {
	return saturate( 1.0 / ( 4.0 * ( dotNL + dotNV - dotNL * dotNV ) ) );
}
vec3 BRDF_Sheen( const in vec3 lightDir, const in vec3 viewDir, const in vec3 normal, vec3 sheenColor, const in float sheenRoughness ) {
	vec3 halfDir = normalize( lightDir + viewDir );
	float dotNL = saturate( dot( normal, lightDir ) );
	float dotNV = saturate( dot( normal, viewDir ) );
	float dotNH = saturate( dot( normal, halfDir ) );
	float D = D_Charlie( sheenRoughness, dotNH );
	float V = V_Neubelt( dotNV, dotNL );
	return sheenColor * ( D * V );
}
#endif
float IBLSheenBRDF( const in vec3 normal, const in vec3 viewDir, const in float roughness ) {
	float dotNV = saturate( dot( normal, viewDir ) );
	float r2 = roughness * roughness;
	float rInv = 1.0 / ( roughness + 0.1 );
	float a = -1.9362 + 1.0678 * roughness + 0.4573 * r2 - 0.8469 * rInv;
	float b = -0.6014 + 0.5538 * roughness - 0.4670 * r2 - 0.1255 * rInv;
	float DG = exp( a * dotNV + b );
	return saturate( DG );
}
vec3 EnvironmentBRDF( const in vec3 normal, const in vec3 viewDir, const in vec3 specularColor, const in float specularF90, const in float roughness ) {
	float dotNV = saturate( dot( normal, viewDir ) );
	vec2 fab = texture2D( dfgLUT, vec2( roughness, dotNV ) ).rg;
	return specularColor * fab.x + specularF90 * fab.y;
}
#ifdef USE_IRIDESCENCE
void computeMultiscatteringIridescence( const in vec2 fab, const in vec3 specularColor, const in float specularF90, const in float iridescence, const in vec3 iridescenceF0, inout vec3 singleScatter, inout vec3 multiScatter ) {
#else
void computeMultiscattering( const in vec2 fab, const in vec3 specularColor, const in float specularF90, inout vec3 singleScatter, inout vec3 multiScatter ) {
#endif
	#ifdef USE_IRIDESCENCE
		vec3 Fr = mix( specularColor, iridescenceF0, iridescence );
	#else
		vec3 Fr = specularColor;
	#endif
	vec3 FssEss = Fr * fab.x + specularF90 * fab.y;
	float Ess = fab.x + fab.y;
	float Ems = 1.0 - Ess;
	vec3 Favg = Fr + ( 1.0 - Fr ) * 0.047619;	vec3 Fms = FssEss * Favg / ( 1.0 - Ems * Favg );
	singleScatter += FssEss;
	multiScatter += Fms * Ems;
}
#if NUM_RECT_AREA_LIGHTS > 0
	void RE_Direct_RectArea_Physical( const in RectAreaLight rectAreaLight, const in vec3 geometryPosition, const in vec3 geometryNormal, const in vec3 geometryViewDir, const in vec3 geometryClearcoatNormal, const in PhysicalMaterial material, inout ReflectedLight reflectedLight ) {
		vec3 normal = geometryNormal;
		vec3 viewDir = geometryViewDir;
		vec3 position = geometryPosition;
		vec3 lightPos = rectAreaLight.position;
		vec3 halfWidth = rectAreaLight.halfWidth;
		vec3 halfHeight = rectAreaLight.halfHeight;
		vec3 lightColor = rectAreaLight.color;
		float roughness = material.roughness;
		vec3 rectCoords[ 4 ];
		rectCoords[ 0 ] = lightPos + halfWidth - halfHeight;		rectCoords[ 1 ] = lightPos - halfWidth - halfHeight;
		rectCoords[ 2 ] = lightPos - halfWidth + halfHeight;
		rectCoords[ 3 ] = lightPos + halfWidth + halfHeight;
		vec2 uv = LTC_Uv( normal, viewDir, roughness );
		vec4 t1 = texture2D( ltc_1, uv );
		vec4 t2 = texture2D( ltc_2, uv );
		mat3 mInv = mat3(
			vec3( t1.x, 0, t1.y ),
			vec3(    0, 1,    0 ),
			vec3( t1.z, 0, t1.w )
		);
		vec3 fresnel = ( material.specularColorBlended * t2.x + ( material.specularF90 - material.specularColorBlended ) * t2.y );
		reflectedLight.directSpecular += lightColor * fresnel * LTC_Evaluate( normal, viewDir, position, mInv, rectCoords );
		reflectedLight.directDiffuse += lightColor * material.diffuseContribution * LTC_Evaluate( normal, viewDir, position, mat3( 1.0 ), rectCoords );
		#ifdef USE_CLEARCOAT
			vec3 Ncc = geometryClearcoatNormal;
			vec2 uvClearcoat = LTC_Uv( Ncc, viewDir, material.clearcoatRoughness );
			vec4 t1Clearcoat = texture2D( ltc_1, uvClearcoat );
			vec4 t2Clearcoat = texture2D( ltc_2, uvClearcoat );
			mat3 mInvClearcoat = mat3(
				vec3( t1Clearcoat.x, 0, t1Clearcoat.y ),
				vec3(             0, 1,             0 ),
				vec3( t1Clearcoat.z, 0, t1Clearcoat.w )
			);
			vec3 fresnelClearcoat = material.clearcoatF0 * t2Clearcoat.x + ( material.clearcoatF90 - material.clearcoatF0 ) * t2Clearcoat.y;
			clearcoatSpecularDirect += lightColor * fresnelClearcoat * LTC_Evaluate( Ncc, viewDir, position, mInvClearcoat, rectCoords );
		#endif
	}
#endif
void RE_Direct_Physical( const in IncidentLight directLight, const in vec3 geometryPosition, const in vec3 geometryNormal, const in vec3 geometryViewDir, const in vec3 geometryClearcoatNormal, const in PhysicalMaterial material, inout ReflectedLight reflectedLight ) {
	float dotNL = saturate( dot( geometryNormal, directLight.direction ) );
	vec3 irradiance = dotNL * directLight.color;
	#ifdef USE_CLEARCOAT
		float dotNLcc = saturate( dot( geometryClearcoatNormal, directLight.direction ) );
		vec3 ccIrradiance = dotNLcc * directLight.color;
		clearcoatSpecularDirect += ccIrradiance * BRDF_GGX_Clearcoat( directLight.direction, geometryViewDir, geometryClearcoatNormal, material );
	#endif
	#ifdef USE_SHEEN
 
 		sheenSpecularDirect += irradiance * BRDF_Sheen( directLight.direction, geometryViewDir, geometryNormal, material.sheenColor, material.sheenRoughness );
 
 		float sheenAlbedoV = IBLSheenBRDF( geometryNormal, geometryViewDir, material.sheenRoughness );
 		float sheenAlbedoL = IBLSheenBRDF( geometryNormal, directLight.direction, material.sheenRoughness );
 
 		float sheenEnergyComp = 1.0 - max3( material.sheenColor ) * max( sheenAlbedoV, sheenAlbedoL );
 
 		irradiance *= sheenEnergyComp;
 
 	#endif
	vec3 specularBRDF = BRDF_GGX( directLight.direction, geometryViewDir, geometryNormal, material );
	#ifdef USE_RETROREFLECTION
		vec3 retroViewDir = reflect( - geometryViewDir, geometryNormal );
		vec3 retroSpecularBRDF = BRDF_GGX( directLight.direction, retroViewDir, geometryNormal, material );
		specularBRDF = mix( specularBRDF, retroSpecularBRDF, saturate( material.retroreflectivity ) );
	#endif
	reflectedLight.directSpecular += irradiance * specularBRDF * material.multiScatteringCompensation;
	vec3 halfDir = normalize( directLight.direction + geometryViewDir );
	float dotVH = saturate( dot( geometryViewDir, halfDir ) );
	vec3 F = F_Schlick( material.specularColor, material.specularF90, dotVH );
	#ifdef USE_RETROREFLECTION
		vec3 retroHalfDir = normalize( directLight.direction + retroViewDir );
		float dotRetroVH = saturate( dot( retroViewDir, retroHalfDir ) );
		vec3 retroF = F_Schlick( material.specularColor, material.specularF90, dotRetroVH );
		F = mix( F, retroF, saturate( material.retroreflectivity ) );
	#endif
	#ifdef USE_DIFFUSE_ROUGHNESS
		vec3 diffuseBRDF = BRDF_EON( directLight.direction, geometryViewDir, geometryNormal, material.diffuseColor, material.diffuseRoughness ) * ( 1.0 - material.metalness );
	#else
		vec3 diffuseBRDF = BRDF_Lambert( material.diffuseContribution );
	#endif
	reflectedLight.directDiffuse += irradiance * diffuseBRDF * ( 1.0 - F );
}
void RE_IndirectDiffuse_Physical( const in vec3 irradiance, const in vec3 geometryPosition, const in vec3 geometryNormal, const in vec3 geometryViewDir, const in vec3 geometryClearcoatNormal, const in PhysicalMaterial material, inout ReflectedLight reflectedLight ) {
	vec3 singleScattering = vec3( 0.0 );
	vec3 multiScattering = vec3( 0.0 );
	#ifdef USE_IRIDESCENCE
		computeMultiscatteringIridescence( material.dfg, material.specularColor, material.specularF90, material.iridescence, material.iridescenceF0Dielectric, singleScattering, multiScattering );
	#else
		computeMultiscattering( material.dfg, material.specularColor, material.specularF90, singleScattering, multiScattering );
	#endif
	#ifdef USE_DIFFUSE_ROUGHNESS
		float dotNV = saturate( dot( geometryNormal, geometryViewDir ) );
		vec3 diffuseAlbedo = EON_DirectionalAlbedo( material.diffuseColor, material.diffuseRoughness, dotNV ) * ( 1.0 - material.metalness );
		vec3 diffuse = irradiance * RECIPROCAL_PI * diffuseAlbedo * ( 1.0 - singleScattering - multiScattering );
	#else
		vec3 diffuse = irradiance * BRDF_Lambert( material.diffuseContribution ) * ( 1.0 - singleScattering - multiScattering );
	#endif
	#ifdef USE_SHEEN
		float sheenAlbedo = IBLSheenBRDF( geometryNormal, geometryViewDir, material.sheenRoughness );
		sheenSpecularIndirect += irradiance * material.sheenColor * sheenAlbedo * RECIPROCAL_PI;
		float sheenEnergyComp = 1.0 - max3( material.sheenColor ) * sheenAlbedo;
		diffuse *= sheenEnergyComp;
	#endif
	reflectedLight.indirectDiffuse += diffuse;
}
void RE_IndirectSpecular_Physical( const in vec3 radiance, const in vec3 irradiance, const in vec3 clearcoatRadiance, const in vec3 geometryPosition, const in vec3 geometryNormal, const in vec3 geometryViewDir, const in vec3 geometryClearcoatNormal, const in PhysicalMaterial material, inout ReflectedLight reflectedLight) {
	#ifdef USE_CLEARCOAT
		clearcoatSpecularIndirect += clearcoatRadiance * EnvironmentBRDF( geometryClearcoatNormal, geometryViewDir, material.clearcoatF0, material.clearcoatF90, material.clearcoatRoughness );
	#endif
	#ifdef USE_SHEEN
		sheenSpecularIndirect += irradiance * material.sheenColor * IBLSheenBRDF( geometryNormal, geometryViewDir, material.sheenRoughness ) * RECIPROCAL_PI;
 	#endif
	vec3 singleScatteringDielectric = vec3( 0.0 );
	vec3 multiScatteringDielectric = vec3( 0.0 );
	vec3 singleScatteringMetallic = vec3( 0.0 );
	vec3 multiScatteringMetallic = vec3( 0.0 );
	#ifdef USE_IRIDESCENCE
		computeMultiscatteringIridescence( material.dfg, material.specularColor, material.specularF90, material.iridescence, material.iridescenceF0Dielectric, singleScatteringDielectric, multiScatteringDielectric );
		computeMultiscatteringIridescence( material.dfg, material.diffuseColor, material.specularF90, material.iridescence, material.iridescenceF0Metallic, singleScatteringMetallic, multiScatteringMetallic );
	#else
		computeMultiscattering( material.dfg, material.specularColor, material.specularF90, singleScatteringDielectric, multiScatteringDielectric );
		computeMultiscattering( material.dfg, material.diffuseColor, material.specularF90, singleScatteringMetallic, multiScatteringMetallic );
	#endif
	vec3 singleScattering = mix( singleScatteringDielectric, singleScatteringMetallic, material.metalness );
	vec3 multiScattering = mix( multiScatteringDielectric, multiScatteringMetallic, material.metalness );
	vec3 totalScatteringDielectric = singleScatteringDielectric + multiScatteringDielectric;
	#ifdef USE_DIFFUSE_ROUGHNESS
		float dotNV = saturate( dot( geometryNormal, geometryViewDir ) );
		vec3 diffuse = EON_DirectionalAlbedo( material.diffuseColor, material.diffuseRoughness, dotNV ) * ( 1.0 - material.metalness ) * ( 1.0 - totalScatteringDielectric );
	#else
		vec3 diffuse = material.diffuseContribution * ( 1.0 - totalScatteringDielectric );
	#endif
	vec3 cosineWeightedIrradiance = irradiance * RECIPROCAL_PI;
	vec3 indirectSpecular = radiance * singleScattering;
	indirectSpecular += multiScattering * cosineWeightedIrradiance;
	vec3 indirectDiffuse = diffuse * cosineWeightedIrradiance;
	#ifdef USE_SHEEN
		float sheenAlbedo = IBLSheenBRDF( geometryNormal, geometryViewDir, material.sheenRoughness );
		float sheenEnergyComp = 1.0 - max3( material.sheenColor ) * sheenAlbedo;
		indirectSpecular *= sheenEnergyComp;
		indirectDiffuse *= sheenEnergyComp;
	#endif
	reflectedLight.indirectSpecular += indirectSpecular;
	reflectedLight.indirectDiffuse += indirectDiffuse;
}
#define RE_Direct				RE_Direct_Physical
#define RE_Direct_RectArea		RE_Direct_RectArea_Physical
#define RE_IndirectDiffuse		RE_IndirectDiffuse_Physical
#define RE_IndirectSpecular		RE_IndirectSpecular_Physical
float computeSpecularOcclusion( const in float dotNV, const in float ambientOcclusion, const in float roughness ) {
	return saturate( pow( dotNV + ambientOcclusion, exp2( - 16.0 * roughness - 1.0 ) ) - 1.0 + ambientOcclusion );
}`,nb=`
vec3 geometryPosition = - vViewPosition;
vec3 geometryNormal = normal;
vec3 geometryViewDir = ( isOrthographic ) ? vec3( 0, 0, 1 ) : normalize( vViewPosition );
vec3 geometryClearcoatNormal = vec3( 0.0 );
#ifdef USE_CLEARCOAT
	geometryClearcoatNormal = clearcoatNormal;
#endif
#ifdef USE_IRIDESCENCE
	float dotNVi = saturate( dot( normal, geometryViewDir ) );
	if ( material.iridescenceThickness == 0.0 ) {
		material.iridescence = 0.0;
	} else {
		material.iridescence = saturate( material.iridescence );
	}
	if ( material.iridescence > 0.0 ) {
		vec3 iridescenceFresnelDielectric = evalIridescence( 1.0, material.iridescenceIOR, dotNVi, material.iridescenceThickness, material.specularColor );
		vec3 iridescenceFresnelMetallic = evalIridescence( 1.0, material.iridescenceIOR, dotNVi, material.iridescenceThickness, material.diffuseColor );
		material.iridescenceFresnel = mix( iridescenceFresnelDielectric, iridescenceFresnelMetallic, material.metalness );
		material.iridescenceF0Dielectric = Schlick_to_F0( iridescenceFresnelDielectric, 1.0, dotNVi );
		material.iridescenceF0Metallic = Schlick_to_F0( iridescenceFresnelMetallic, 1.0, dotNVi );
	}
#endif
#ifdef STANDARD
	float dotNVms = saturate( dot( geometryNormal, geometryViewDir ) );
	material.dfg = texture2D( dfgLUT, vec2( material.roughness, dotNVms ) ).rg;
	#if ( NUM_SUN_LIGHTS > 0 || NUM_DIR_LIGHTS > 0 || NUM_POINT_LIGHTS > 0 || NUM_SPOT_LIGHTS > 0 )
		float EssMs = material.dfg.x + material.dfg.y;
		material.multiScatteringCompensation = 1.0 + material.specularColorBlended * ( 1.0 / EssMs - 1.0 );
	#endif
#endif
IncidentLight directLight;
#if ( NUM_POINT_LIGHTS > 0 ) && defined( RE_Direct )
	PointLight pointLight;
	#if defined( USE_SHADOWMAP ) && NUM_POINT_LIGHT_SHADOWS > 0
	PointLightShadow pointLightShadow;
	#endif
	#pragma unroll_loop_start
	for ( int i = 0; i < NUM_POINT_LIGHTS; i ++ ) {
		pointLight = pointLights[ i ];
		getPointLightInfo( pointLight, geometryPosition, directLight );
		#if defined( USE_SHADOWMAP ) && ( UNROLLED_LOOP_INDEX < NUM_POINT_LIGHT_SHADOWS ) && ( defined( SHADOWMAP_TYPE_PCF ) || defined( SHADOWMAP_TYPE_BASIC ) )
		pointLightShadow = pointLightShadows[ i ];
		directLight.color *= ( directLight.visible && receiveShadow ) ? getPointShadow( pointShadowMap[ i ], pointLightShadow.shadowMapSize, pointLightShadow.shadowIntensity, pointLightShadow.shadowBias, pointLightShadow.shadowRadius, vPointShadowCoord[ i ], pointLightShadow.shadowCameraNear, pointLightShadow.shadowCameraFar ) : 1.0;
		#endif
		RE_Direct( directLight, geometryPosition, geometryNormal, geometryViewDir, geometryClearcoatNormal, material, reflectedLight );
	}
	#pragma unroll_loop_end
#endif
#if ( NUM_SPOT_LIGHTS > 0 ) && defined( RE_Direct )
	SpotLight spotLight;
	vec4 spotColor;
	vec3 spotLightCoord;
	bool inSpotLightMap;
	#if defined( USE_SHADOWMAP ) && NUM_SPOT_LIGHT_SHADOWS > 0
	SpotLightShadow spotLightShadow;
	#endif
	#pragma unroll_loop_start
	for ( int i = 0; i < NUM_SPOT_LIGHTS; i ++ ) {
		spotLight = spotLights[ i ];
		getSpotLightInfo( spotLight, geometryPosition, directLight );
		#if ( UNROLLED_LOOP_INDEX < NUM_SPOT_LIGHT_SHADOWS_WITH_MAPS )
		#define SPOT_LIGHT_MAP_INDEX UNROLLED_LOOP_INDEX
		#elif ( UNROLLED_LOOP_INDEX < NUM_SPOT_LIGHT_SHADOWS )
		#define SPOT_LIGHT_MAP_INDEX NUM_SPOT_LIGHT_MAPS
		#else
		#define SPOT_LIGHT_MAP_INDEX ( UNROLLED_LOOP_INDEX - NUM_SPOT_LIGHT_SHADOWS + NUM_SPOT_LIGHT_SHADOWS_WITH_MAPS )
		#endif
		#if ( SPOT_LIGHT_MAP_INDEX < NUM_SPOT_LIGHT_MAPS )
			spotLightCoord = vSpotLightCoord[ i ].xyz / vSpotLightCoord[ i ].w;
			inSpotLightMap = all( lessThan( abs( spotLightCoord * 2. - 1. ), vec3( 1.0 ) ) );
			spotColor = texture2D( spotLightMap[ SPOT_LIGHT_MAP_INDEX ], spotLightCoord.xy );
			directLight.color = inSpotLightMap ? directLight.color * spotColor.rgb : directLight.color;
		#endif
		#undef SPOT_LIGHT_MAP_INDEX
		#if defined( USE_SHADOWMAP ) && ( UNROLLED_LOOP_INDEX < NUM_SPOT_LIGHT_SHADOWS )
		spotLightShadow = spotLightShadows[ i ];
		directLight.color *= ( directLight.visible && receiveShadow ) ? getShadow( spotShadowMap[ i ], spotLightShadow.shadowMapSize, spotLightShadow.shadowIntensity, spotLightShadow.shadowBias, spotLightShadow.shadowRadius, vSpotLightCoord[ i ] ) : 1.0;
		#endif
		RE_Direct( directLight, geometryPosition, geometryNormal, geometryViewDir, geometryClearcoatNormal, material, reflectedLight );
	}
	#pragma unroll_loop_end
#endif
#if ( NUM_SUN_LIGHTS > 0 ) && defined( RE_Direct )
	SunLight sunLight;
	#if defined( USE_SHADOWMAP ) && NUM_SUN_LIGHT_SHADOWS > 0
	SunLightShadow sunLightShadow;
	#endif
	#pragma unroll_loop_start
	for ( int i = 0; i < NUM_SUN_LIGHTS; i ++ ) {
		sunLight = sunLights[ i ];
		getSunLightInfo( sunLight, directLight );
		#if defined( USE_SHADOWMAP ) && ( UNROLLED_LOOP_INDEX < NUM_SUN_LIGHT_SHADOWS )
		sunLightShadow = sunLightShadows[ i ];
		directLight.color *= ( directLight.visible && receiveShadow ) ? getSunShadow( sunShadowMap[ i ], sunLightShadow, UNROLLED_LOOP_INDEX ) : 1.0;
		#endif
		RE_Direct( directLight, geometryPosition, geometryNormal, geometryViewDir, geometryClearcoatNormal, material, reflectedLight );
	}
	#pragma unroll_loop_end
#endif
#if ( NUM_DIR_LIGHTS > 0 ) && defined( RE_Direct )
	DirectionalLight directionalLight;
	#if defined( USE_SHADOWMAP ) && NUM_DIR_LIGHT_SHADOWS > 0
	DirectionalLightShadow directionalLightShadow;
	#endif
	#pragma unroll_loop_start
	for ( int i = 0; i < NUM_DIR_LIGHTS; i ++ ) {
		directionalLight = directionalLights[ i ];
		getDirectionalLightInfo( directionalLight, directLight );
		#if defined( USE_SHADOWMAP ) && ( UNROLLED_LOOP_INDEX < NUM_DIR_LIGHT_SHADOWS )
		directionalLightShadow = directionalLightShadows[ i ];
		directLight.color *= ( directLight.visible && receiveShadow ) ? getShadow( directionalShadowMap[ i ], directionalLightShadow.shadowMapSize, directionalLightShadow.shadowIntensity, directionalLightShadow.shadowBias, directionalLightShadow.shadowRadius, vDirectionalShadowCoord[ i ] ) : 1.0;
		#endif
		RE_Direct( directLight, geometryPosition, geometryNormal, geometryViewDir, geometryClearcoatNormal, material, reflectedLight );
	}
	#pragma unroll_loop_end
#endif
#if ( NUM_RECT_AREA_LIGHTS > 0 ) && defined( RE_Direct_RectArea )
	RectAreaLight rectAreaLight;
	#pragma unroll_loop_start
	for ( int i = 0; i < NUM_RECT_AREA_LIGHTS; i ++ ) {
		rectAreaLight = rectAreaLights[ i ];
		RE_Direct_RectArea( rectAreaLight, geometryPosition, geometryNormal, geometryViewDir, geometryClearcoatNormal, material, reflectedLight );
	}
	#pragma unroll_loop_end
#endif
#if defined( RE_IndirectDiffuse )
	vec3 iblIrradiance = vec3( 0.0 );
	vec3 irradiance = getAmbientLightIrradiance( ambientLightColor );
	#if defined( USE_LIGHT_PROBES )
		irradiance += getLightProbeIrradiance( lightProbe, geometryNormal );
	#endif
	#if ( NUM_HEMI_LIGHTS > 0 )
		#pragma unroll_loop_start
		for ( int i = 0; i < NUM_HEMI_LIGHTS; i ++ ) {
			irradiance += getHemisphereLightIrradiance( hemisphereLights[ i ], geometryNormal );
		}
		#pragma unroll_loop_end
	#endif
	#if NUM_LIGHT_PROBE_GRIDS > 0
		vec3 probeWorldPos = ( ( vec4( geometryPosition, 1.0 ) - viewMatrix[ 3 ] ) * viewMatrix ).xyz;
		vec3 probeWorldNormal = transformNormalByInverseViewMatrix( geometryNormal, viewMatrix );
		int probeGrid = - 1;
		#pragma unroll_loop_start
		for ( int i = 0; i < NUM_LIGHT_PROBE_GRIDS; i ++ ) {
			if ( isInsideLightProbeGrid( probeWorldPos, probeWorldNormal, probesMin[ i ], probesMax[ i ], probesResolution[ i ] ) ) probeGrid = UNROLLED_LOOP_INDEX;
		}
		#pragma unroll_loop_end
		#pragma unroll_loop_start
		for ( int i = 0; i < NUM_LIGHT_PROBE_GRIDS; i ++ ) {
			if ( probeGrid == UNROLLED_LOOP_INDEX ) irradiance += getLightProbeGridIrradiance( probesSH[ i ], probesMin[ i ], probesMax[ i ], probesResolution[ i ], probeWorldPos, probeWorldNormal );
		}
		#pragma unroll_loop_end
	#endif
#endif
#if defined( RE_IndirectSpecular )
	vec3 radiance = vec3( 0.0 );
	vec3 clearcoatRadiance = vec3( 0.0 );
#endif`,ib=`#if defined( RE_IndirectDiffuse )
	#ifdef USE_LIGHTMAP
		vec4 lightMapTexel = texture2D( lightMap, vLightMapUv );
		vec3 lightMapIrradiance = lightMapTexel.rgb * lightMapIntensity;
		irradiance += lightMapIrradiance;
	#endif
	#if defined( USE_ENVMAP ) && defined( ENVMAP_TYPE_PMREM )
		#if defined( STANDARD ) || defined( LAMBERT ) || defined( PHONG )
			iblIrradiance += getIBLIrradiance( geometryNormal );
		#endif
	#endif
#endif
#if defined( USE_ENVMAP ) && defined( RE_IndirectSpecular )
	#ifdef USE_ANISOTROPY
		vec3 iblRadiance = getIBLAnisotropyRadiance( geometryViewDir, geometryNormal, material.roughness, material.anisotropyB, material.anisotropy );
	#else
		vec3 iblRadiance = getIBLRadiance( geometryViewDir, geometryNormal, material.roughness );
	#endif
	#ifdef USE_RETROREFLECTION
		#ifdef USE_ANISOTROPY
			vec3 retroIBLRadiance = getIBLAnisotropyRetroRadiance( geometryViewDir, geometryNormal, material.roughness, material.anisotropyB, material.anisotropy );
		#else
			vec3 retroIBLRadiance = getIBLRetroRadiance( geometryViewDir, geometryNormal, material.roughness );
		#endif
		iblRadiance = mix( iblRadiance, retroIBLRadiance, saturate( material.retroreflectivity ) );
	#endif
	radiance += iblRadiance;
	#ifdef USE_CLEARCOAT
		clearcoatRadiance += getIBLRadiance( geometryViewDir, geometryClearcoatNormal, material.clearcoatRoughness );
	#endif
#endif`,sb=`#if defined( RE_IndirectDiffuse )
	#if defined( LAMBERT ) || defined( PHONG )
		irradiance += iblIrradiance;
	#endif
	RE_IndirectDiffuse( irradiance, geometryPosition, geometryNormal, geometryViewDir, geometryClearcoatNormal, material, reflectedLight );
#endif
#if defined( RE_IndirectSpecular )
	RE_IndirectSpecular( radiance, iblIrradiance, clearcoatRadiance, geometryPosition, geometryNormal, geometryViewDir, geometryClearcoatNormal, material, reflectedLight );
#endif`,rb=`#if NUM_LIGHT_PROBE_GRIDS > 0
uniform highp sampler3D probesSH[ NUM_LIGHT_PROBE_GRIDS ];
uniform vec3 probesMin[ NUM_LIGHT_PROBE_GRIDS ];
uniform vec3 probesMax[ NUM_LIGHT_PROBE_GRIDS ];
uniform vec3 probesResolution[ NUM_LIGHT_PROBE_GRIDS ];
bool isInsideLightProbeGrid( vec3 worldPos, vec3 worldNormal, vec3 probesMin, vec3 probesMax, vec3 probesResolution ) {
	vec3 spacing = ( probesMax - probesMin ) / probesResolution;
	vec3 samplePos = worldPos + worldNormal * spacing * 0.5;
	vec3 margin = spacing * 0.01;
	return all( greaterThanEqual( samplePos, probesMin - margin ) ) && all( lessThanEqual( samplePos, probesMax + margin ) );
}
vec3 getLightProbeGridIrradiance( highp sampler3D probesSH, vec3 probesMin, vec3 probesMax, vec3 probesResolution, vec3 worldPos, vec3 worldNormal ) {
	vec3 res = probesResolution;
	vec3 gridRange = probesMax - probesMin;
	vec3 probeSpacing = gridRange / res;
	vec3 samplePos = worldPos + worldNormal * probeSpacing * 0.5;
	vec3 uvw = clamp( ( samplePos - probesMin ) / gridRange, 0.5 / res, 1.0 - 0.5 / res );
	float nz          = res.z;
	float paddedSlices = nz + 2.0;
	float atlasDepth  = 7.0 * paddedSlices;
	float uvZBase     = uvw.z * nz + 1.0;
	vec4 s0 = texture( probesSH, vec3( uvw.xy, ( uvZBase                       ) / atlasDepth ) );
	vec4 s1 = texture( probesSH, vec3( uvw.xy, ( uvZBase +       paddedSlices   ) / atlasDepth ) );
	vec4 s2 = texture( probesSH, vec3( uvw.xy, ( uvZBase + 2.0 * paddedSlices   ) / atlasDepth ) );
	vec4 s3 = texture( probesSH, vec3( uvw.xy, ( uvZBase + 3.0 * paddedSlices   ) / atlasDepth ) );
	vec4 s4 = texture( probesSH, vec3( uvw.xy, ( uvZBase + 4.0 * paddedSlices   ) / atlasDepth ) );
	vec4 s5 = texture( probesSH, vec3( uvw.xy, ( uvZBase + 5.0 * paddedSlices   ) / atlasDepth ) );
	vec4 s6 = texture( probesSH, vec3( uvw.xy, ( uvZBase + 6.0 * paddedSlices   ) / atlasDepth ) );
	vec3 c0 = s0.xyz;
	vec3 c1 = vec3( s0.w, s1.xy );
	vec3 c2 = vec3( s1.zw, s2.x );
	vec3 c3 = s2.yzw;
	vec3 c4 = s3.xyz;
	vec3 c5 = vec3( s3.w, s4.xy );
	vec3 c6 = vec3( s4.zw, s5.x );
	vec3 c7 = s5.yzw;
	vec3 c8 = s6.xyz;
	float x = worldNormal.x, y = worldNormal.y, z = worldNormal.z;
	vec3 result = c0 * 0.886227;
	result += c1 * 2.0 * 0.511664 * y;
	result += c2 * 2.0 * 0.511664 * z;
	result += c3 * 2.0 * 0.511664 * x;
	result += c4 * 2.0 * 0.429043 * x * y;
	result += c5 * 2.0 * 0.429043 * y * z;
	result += c6 * ( 0.743125 * z * z - 0.247708 );
	result += c7 * 2.0 * 0.429043 * x * z;
	result += c8 * 0.429043 * ( x * x - y * y );
	return max( result, vec3( 0.0 ) );
}
#endif`,ob=`#if defined( USE_LOGARITHMIC_DEPTH_BUFFER )
	gl_FragDepth = vIsPerspective == 0.0 ? gl_FragCoord.z : log2( vFragDepth ) * logDepthBufFC * 0.5;
#endif`,ab=`#if defined( USE_LOGARITHMIC_DEPTH_BUFFER )
	uniform float logDepthBufFC;
	varying float vFragDepth;
	varying float vIsPerspective;
#endif`,lb=`#ifdef USE_LOGARITHMIC_DEPTH_BUFFER
	varying float vFragDepth;
	varying float vIsPerspective;
#endif`,cb=`#ifdef USE_LOGARITHMIC_DEPTH_BUFFER
	vFragDepth = 1.0 + gl_Position.w;
	vIsPerspective = float( isPerspectiveMatrix( projectionMatrix ) );
#endif`,hb=`#ifdef USE_MAP
	vec4 sampledDiffuseColor = texture2D( map, vMapUv );
	#ifdef DECODE_VIDEO_TEXTURE
		sampledDiffuseColor = sRGBTransferEOTF( sampledDiffuseColor );
	#endif
	diffuseColor *= sampledDiffuseColor;
#endif`,ub=`#ifdef USE_MAP
	uniform sampler2D map;
#endif`,db=`#if defined( USE_MAP ) || defined( USE_ALPHAMAP )
	#if defined( USE_POINTS_UV )
		vec2 uv = vUv;
	#else
		vec2 uv = ( uvTransform * vec3( gl_PointCoord.x, 1.0 - gl_PointCoord.y, 1 ) ).xy;
	#endif
#endif
#ifdef USE_MAP
	diffuseColor *= texture2D( map, uv );
#endif
#ifdef USE_ALPHAMAP
	diffuseColor.a *= texture2D( alphaMap, uv ).g;
#endif`,fb=`#if defined( USE_POINTS_UV )
	varying vec2 vUv;
#else
	#if defined( USE_MAP ) || defined( USE_ALPHAMAP )
		uniform mat3 uvTransform;
	#endif
#endif
#ifdef USE_MAP
	uniform sampler2D map;
#endif
#ifdef USE_ALPHAMAP
	uniform sampler2D alphaMap;
#endif`,pb=`float metalnessFactor = metalness;
#ifdef USE_METALNESSMAP
	vec4 texelMetalness = texture2D( metalnessMap, vMetalnessMapUv );
	metalnessFactor *= texelMetalness.b;
#endif`,mb=`#ifdef USE_METALNESSMAP
	uniform sampler2D metalnessMap;
#endif`,gb=`#ifdef USE_INSTANCING_MORPH
	float morphTargetInfluences[ MORPHTARGETS_COUNT ];
	float morphTargetBaseInfluence = texelFetch( morphTexture, ivec2( 0, gl_InstanceID ), 0 ).r;
	for ( int i = 0; i < MORPHTARGETS_COUNT; i ++ ) {
		morphTargetInfluences[i] =  texelFetch( morphTexture, ivec2( i + 1, gl_InstanceID ), 0 ).r;
	}
#endif`,_b=`#if defined( USE_MORPHCOLORS )
	#if defined( USE_COLOR_ALPHA )
		vColor *= morphTargetBaseInfluence;
	#elif defined( USE_COLOR )
		vColor.rgb *= morphTargetBaseInfluence;
	#endif
	for ( int i = 0; i < MORPHTARGETS_COUNT; i ++ ) {
		#if defined( USE_COLOR_ALPHA )
			if ( morphTargetInfluences[ i ] != 0.0 ) vColor += getMorph( gl_VertexID, i, 2 ) * morphTargetInfluences[ i ];
		#elif defined( USE_COLOR )
			if ( morphTargetInfluences[ i ] != 0.0 ) vColor.rgb += getMorph( gl_VertexID, i, 2 ).rgb * morphTargetInfluences[ i ];
		#endif
	}
#endif`,xb=`#ifdef USE_MORPHNORMALS
	objectNormal *= morphTargetBaseInfluence;
	for ( int i = 0; i < MORPHTARGETS_COUNT; i ++ ) {
		if ( morphTargetInfluences[ i ] != 0.0 ) objectNormal += getMorph( gl_VertexID, i, 1 ).xyz * morphTargetInfluences[ i ];
	}
#endif`,vb=`#ifdef USE_MORPHTARGETS
	#ifndef USE_INSTANCING_MORPH
		uniform float morphTargetBaseInfluence;
		uniform float morphTargetInfluences[ MORPHTARGETS_COUNT ];
	#endif
	uniform sampler2DArray morphTargetsTexture;
	uniform ivec2 morphTargetsTextureSize;
	vec4 getMorph( const in int vertexIndex, const in int morphTargetIndex, const in int offset ) {
		int texelIndex = vertexIndex * MORPHTARGETS_TEXTURE_STRIDE + offset;
		int y = texelIndex / morphTargetsTextureSize.x;
		int x = texelIndex - y * morphTargetsTextureSize.x;
		ivec3 morphUV = ivec3( x, y, morphTargetIndex );
		return texelFetch( morphTargetsTexture, morphUV, 0 );
	}
#endif`,yb=`#ifdef USE_MORPHTARGETS
	transformed *= morphTargetBaseInfluence;
	for ( int i = 0; i < MORPHTARGETS_COUNT; i ++ ) {
		if ( morphTargetInfluences[ i ] != 0.0 ) transformed += getMorph( gl_VertexID, i, 0 ).xyz * morphTargetInfluences[ i ];
	}
#endif`,bb=`float faceDirection = gl_FrontFacing ? 1.0 : - 1.0;
#ifdef FLAT_SHADED
	vec3 fdx = dFdx( vViewPosition );
	vec3 fdy = dFdy( vViewPosition );
	vec3 normal = normalize( cross( fdx, fdy ) );
#else
	vec3 normal = normalize( vNormal );
	#ifdef DOUBLE_SIDED
		normal *= faceDirection;
	#endif
#endif
#if defined( USE_NORMALMAP_TANGENTSPACE ) || defined( USE_CLEARCOAT_NORMALMAP ) || defined( USE_ANISOTROPY )
	#ifdef USE_TANGENT
		mat3 tbn = mat3( normalize( vTangent ), normalize( vBitangent ), normal );
	#else
		mat3 tbn = getTangentFrame( - vViewPosition, normal,
		#if defined( USE_NORMALMAP )
			vNormalMapUv
		#elif defined( USE_CLEARCOAT_NORMALMAP )
			vClearcoatNormalMapUv
		#else
			vUv
		#endif
		);
	#endif
	#ifdef DOUBLE_SIDED
		tbn[0] *= faceDirection;
		tbn[1] *= faceDirection;
	#endif
#endif
#ifdef USE_CLEARCOAT_NORMALMAP
	#ifdef USE_TANGENT
		mat3 tbn2 = mat3( normalize( vTangent ), normalize( vBitangent ), normal );
	#else
		mat3 tbn2 = getTangentFrame( - vViewPosition, normal, vClearcoatNormalMapUv );
	#endif
	#ifdef DOUBLE_SIDED
		tbn2[0] *= faceDirection;
		tbn2[1] *= faceDirection;
	#endif
#endif
vec3 nonPerturbedNormal = normal;`,Sb=`#ifdef USE_NORMALMAP_OBJECTSPACE
	normal = texture2D( normalMap, vNormalMapUv ).xyz * 2.0 - 1.0;
	#ifdef FLIP_SIDED
		normal = - normal;
	#endif
	#ifdef DOUBLE_SIDED
		normal = normal * faceDirection;
	#endif
	normal = normalize( normalMatrix * normal );
#elif defined( USE_NORMALMAP_TANGENTSPACE )
	vec3 mapN = texture2D( normalMap, vNormalMapUv ).xyz * 2.0 - 1.0;
	#if defined( USE_PACKED_NORMALMAP )
		mapN = vec3( mapN.xy, sqrt( saturate( 1.0 - dot( mapN.xy, mapN.xy ) ) ) );
	#endif
	mapN.xy *= normalScale;
	normal = normalize( tbn * mapN );
#elif defined( USE_BUMPMAP )
	normal = perturbNormalArb( - vViewPosition, normal, dHdxy_fwd(), faceDirection );
#endif`,Mb=`#ifndef FLAT_SHADED
	varying vec3 vNormal;
	#ifdef USE_TANGENT
		varying vec3 vTangent;
		varying vec3 vBitangent;
	#endif
#endif`,wb=`#ifndef FLAT_SHADED
	varying vec3 vNormal;
	#ifdef USE_TANGENT
		varying vec3 vTangent;
		varying vec3 vBitangent;
	#endif
#endif`,Eb=`#ifndef FLAT_SHADED
	vNormal = normalize( transformedNormal );
	#ifdef USE_TANGENT
		vTangent = normalize( transformedTangent );
		vBitangent = normalize( cross( vNormal, vTangent ) * tangent.w );
		#ifdef FLIP_SIDED
			vBitangent = - vBitangent;
		#endif
	#endif
#endif`,Tb=`#ifdef USE_NORMALMAP
	uniform sampler2D normalMap;
	uniform vec2 normalScale;
#endif
#ifdef USE_NORMALMAP_OBJECTSPACE
	uniform mat3 normalMatrix;
#endif
#if ! defined ( USE_TANGENT ) && ( defined ( USE_NORMALMAP_TANGENTSPACE ) || defined ( USE_CLEARCOAT_NORMALMAP ) || defined( USE_ANISOTROPY ) )
	mat3 getTangentFrame( vec3 eye_pos, vec3 surf_norm, vec2 uv ) {
		vec3 q0 = dFdx( eye_pos.xyz );
		vec3 q1 = dFdy( eye_pos.xyz );
		vec2 st0 = dFdx( uv.st );
		vec2 st1 = dFdy( uv.st );
		vec3 N = surf_norm;
		vec3 q1perp = cross( q1, N );
		vec3 q0perp = cross( N, q0 );
		vec3 T = q1perp * st0.x + q0perp * st1.x;
		vec3 B = q1perp * st0.y + q0perp * st1.y;
		float det = max( dot( T, T ), dot( B, B ) );
		float scale = ( det == 0.0 ) ? 0.0 : inversesqrt( det );
		return mat3( T * scale, B * scale, N );
	}
#endif`,Ab=`#ifdef USE_CLEARCOAT
	vec3 clearcoatNormal = nonPerturbedNormal;
#endif`,Rb=`#ifdef USE_CLEARCOAT_NORMALMAP
	vec3 clearcoatMapN = texture2D( clearcoatNormalMap, vClearcoatNormalMapUv ).xyz * 2.0 - 1.0;
	clearcoatMapN.xy *= clearcoatNormalScale;
	clearcoatNormal = normalize( tbn2 * clearcoatMapN );
#endif`,Cb=`#ifdef USE_CLEARCOATMAP
	uniform sampler2D clearcoatMap;
#endif
#ifdef USE_CLEARCOAT_NORMALMAP
	uniform sampler2D clearcoatNormalMap;
	uniform vec2 clearcoatNormalScale;
#endif
#ifdef USE_CLEARCOAT_ROUGHNESSMAP
	uniform sampler2D clearcoatRoughnessMap;
#endif`,Pb=`#ifdef USE_IRIDESCENCEMAP
	uniform sampler2D iridescenceMap;
#endif
#ifdef USE_IRIDESCENCE_THICKNESSMAP
	uniform sampler2D iridescenceThicknessMap;
#endif`,Ib=`#ifdef OPAQUE
diffuseColor.a = 1.0;
#endif
#ifdef USE_TRANSMISSION
diffuseColor.a *= material.transmissionAlpha;
#endif
gl_FragColor = vec4( outgoingLight, diffuseColor.a );`,Lb=`vec3 packNormalToRGB( const in vec3 normal ) {
	return normalize( normal ) * 0.5 + 0.5;
}
vec3 unpackRGBToNormal( const in vec3 rgb ) {
	return 2.0 * rgb.xyz - 1.0;
}
const float PackUpscale = 256. / 255.;const float UnpackDownscale = 255. / 256.;const float ShiftRight8 = 1. / 256.;
const float Inv255 = 1. / 255.;
const vec4 PackFactors = vec4( 1.0, 256.0, 256.0 * 256.0, 256.0 * 256.0 * 256.0 );
const vec2 UnpackFactors2 = vec2( UnpackDownscale, 1.0 / PackFactors.g );
const vec3 UnpackFactors3 = vec3( UnpackDownscale / PackFactors.rg, 1.0 / PackFactors.b );
const vec4 UnpackFactors4 = vec4( UnpackDownscale / PackFactors.rgb, 1.0 / PackFactors.a );
vec4 packDepthToRGBA( const in float v ) {
	if( v <= 0.0 )
		return vec4( 0., 0., 0., 0. );
	if( v >= 1.0 )
		return vec4( 1., 1., 1., 1. );
	float vuf;
	float af = modf( v * PackFactors.a, vuf );
	float bf = modf( vuf * ShiftRight8, vuf );
	float gf = modf( vuf * ShiftRight8, vuf );
	return vec4( vuf * Inv255, gf * PackUpscale, bf * PackUpscale, af );
}
vec3 packDepthToRGB( const in float v ) {
	if( v <= 0.0 )
		return vec3( 0., 0., 0. );
	if( v >= 1.0 )
		return vec3( 1., 1., 1. );
	float vuf;
	float bf = modf( v * PackFactors.b, vuf );
	float gf = modf( vuf * ShiftRight8, vuf );
	return vec3( vuf * Inv255, gf * PackUpscale, bf );
}
vec2 packDepthToRG( const in float v ) {
	if( v <= 0.0 )
		return vec2( 0., 0. );
	if( v >= 1.0 )
		return vec2( 1., 1. );
	float vuf;
	float gf = modf( v * 256., vuf );
	return vec2( vuf * Inv255, gf );
}
float unpackRGBAToDepth( const in vec4 v ) {
	return dot( v, UnpackFactors4 );
}
float unpackRGBToDepth( const in vec3 v ) {
	return dot( v, UnpackFactors3 );
}
float unpackRGToDepth( const in vec2 v ) {
	return v.r * UnpackFactors2.r + v.g * UnpackFactors2.g;
}
vec4 pack2HalfToRGBA( const in vec2 v ) {
	vec4 r = vec4( v.x, fract( v.x * 255.0 ), v.y, fract( v.y * 255.0 ) );
	return vec4( r.x - r.y / 255.0, r.y, r.z - r.w / 255.0, r.w );
}
vec2 unpackRGBATo2Half( const in vec4 v ) {
	return vec2( v.x + ( v.y / 255.0 ), v.z + ( v.w / 255.0 ) );
}
float viewZToOrthographicDepth( const in float viewZ, const in float near, const in float far ) {
	return ( viewZ + near ) / ( near - far );
}
float orthographicDepthToViewZ( const in float depth, const in float near, const in float far ) {
	#ifdef USE_REVERSED_DEPTH_BUFFER
	
		return depth * ( far - near ) - far;
	#else
		return depth * ( near - far ) - near;
	#endif
}
float viewZToPerspectiveDepth( const in float viewZ, const in float near, const in float far ) {
	return ( ( near + viewZ ) * far ) / ( ( far - near ) * viewZ );
}
float perspectiveDepthToViewZ( const in float depth, const in float near, const in float far ) {
	
	#ifdef USE_REVERSED_DEPTH_BUFFER
		return ( near * far ) / ( ( near - far ) * depth - near );
	#else
		return ( near * far ) / ( ( far - near ) * depth - far );
	#endif
}`,Db=`#ifdef PREMULTIPLIED_ALPHA
	gl_FragColor.rgb *= gl_FragColor.a;
#endif`,Nb=`vec4 mvPosition = vec4( transformed, 1.0 );
#ifdef USE_BATCHING
	mvPosition = batchingMatrix * mvPosition;
#endif
#ifdef USE_INSTANCING
	mvPosition = instanceMatrix * mvPosition;
#endif
mvPosition = modelViewMatrix * mvPosition;
gl_Position = projectionMatrix * mvPosition;`,Ub=`#ifdef DITHERING
	gl_FragColor.rgb = dithering( gl_FragColor.rgb );
#endif`,Ob=`#ifdef DITHERING
	vec3 dithering( vec3 color ) {
		float grid_position = rand( gl_FragCoord.xy );
		vec3 dither_shift_RGB = vec3( 0.25 / 255.0, -0.25 / 255.0, 0.25 / 255.0 );
		dither_shift_RGB = mix( 2.0 * dither_shift_RGB, -2.0 * dither_shift_RGB, grid_position );
		return color + dither_shift_RGB;
	}
#endif`,Fb=`float roughnessFactor = roughness;
#ifdef USE_ROUGHNESSMAP
	vec4 texelRoughness = texture2D( roughnessMap, vRoughnessMapUv );
	roughnessFactor *= texelRoughness.g;
#endif`,Bb=`#ifdef USE_ROUGHNESSMAP
	uniform sampler2D roughnessMap;
#endif`,kb=`#if NUM_SPOT_LIGHT_COORDS > 0
	varying vec4 vSpotLightCoord[ NUM_SPOT_LIGHT_COORDS ];
#endif
#if NUM_SPOT_LIGHT_MAPS > 0
	uniform sampler2D spotLightMap[ NUM_SPOT_LIGHT_MAPS ];
#endif
#ifdef USE_SHADOWMAP
	#if NUM_SUN_LIGHT_SHADOWS > 0
		#define SUN_LIGHT_CASCADES 2
		#if defined( SHADOWMAP_TYPE_PCF )
			uniform sampler2DShadow sunShadowMap[ NUM_SUN_LIGHT_SHADOWS ];
		#else
			uniform sampler2D sunShadowMap[ NUM_SUN_LIGHT_SHADOWS ];
		#endif
		uniform mat4 sunShadowMatrix[ NUM_SUN_LIGHT_SHADOWS * SUN_LIGHT_CASCADES ];
		uniform vec4 sunShadowCascade[ NUM_SUN_LIGHT_SHADOWS * SUN_LIGHT_CASCADES ];
		varying vec4 vSunShadowWorldPosition;
		varying vec3 vSunShadowWorldNormal;
		struct SunLightShadow {
			float shadowIntensity;
			float shadowBias;
			float shadowNormalBias;
			float shadowRadius;
			vec2 shadowMapSize;
		};
		uniform SunLightShadow sunLightShadows[ NUM_SUN_LIGHT_SHADOWS ];
	#endif
	#if NUM_DIR_LIGHT_SHADOWS > 0
		#if defined( SHADOWMAP_TYPE_PCF )
			uniform sampler2DShadow directionalShadowMap[ NUM_DIR_LIGHT_SHADOWS ];
		#else
			uniform sampler2D directionalShadowMap[ NUM_DIR_LIGHT_SHADOWS ];
		#endif
		varying vec4 vDirectionalShadowCoord[ NUM_DIR_LIGHT_SHADOWS ];
		struct DirectionalLightShadow {
			float shadowIntensity;
			float shadowBias;
			float shadowNormalBias;
			float shadowRadius;
			vec2 shadowMapSize;
		};
		uniform DirectionalLightShadow directionalLightShadows[ NUM_DIR_LIGHT_SHADOWS ];
	#endif
	#if NUM_SPOT_LIGHT_SHADOWS > 0
		#if defined( SHADOWMAP_TYPE_PCF )
			uniform sampler2DShadow spotShadowMap[ NUM_SPOT_LIGHT_SHADOWS ];
		#else
			uniform sampler2D spotShadowMap[ NUM_SPOT_LIGHT_SHADOWS ];
		#endif
		struct SpotLightShadow {
			float shadowIntensity;
			float shadowBias;
			float shadowNormalBias;
			float shadowRadius;
			vec2 shadowMapSize;
		};
		uniform SpotLightShadow spotLightShadows[ NUM_SPOT_LIGHT_SHADOWS ];
	#endif
	#if NUM_POINT_LIGHT_SHADOWS > 0
		#if defined( SHADOWMAP_TYPE_PCF )
			uniform samplerCubeShadow pointShadowMap[ NUM_POINT_LIGHT_SHADOWS ];
		#elif defined( SHADOWMAP_TYPE_BASIC )
			uniform samplerCube pointShadowMap[ NUM_POINT_LIGHT_SHADOWS ];
		#endif
		varying vec4 vPointShadowCoord[ NUM_POINT_LIGHT_SHADOWS ];
		struct PointLightShadow {
			float shadowIntensity;
			float shadowBias;
			float shadowNormalBias;
			float shadowRadius;
			vec2 shadowMapSize;
			float shadowCameraNear;
			float shadowCameraFar;
		};
		uniform PointLightShadow pointLightShadows[ NUM_POINT_LIGHT_SHADOWS ];
	#endif
	#if defined( SHADOWMAP_TYPE_PCF )
		float interleavedGradientNoise( vec2 position ) {
			return fract( 52.9829189 * fract( dot( position, vec2( 0.06711056, 0.00583715 ) ) ) );
		}
		vec2 vogelDiskSample( int sampleIndex, int samplesCount, float phi ) {
			const float goldenAngle = 2.399963229728653;
			float r = sqrt( ( float( sampleIndex ) + 0.5 ) / float( samplesCount ) );
			float theta = float( sampleIndex ) * goldenAngle + phi;
			return vec2( cos( theta ), sin( theta ) ) * r;
		}
	#endif
	#if defined( SHADOWMAP_TYPE_PCF )
		float getShadow( sampler2DShadow shadowMap, vec2 shadowMapSize, float shadowIntensity, float shadowBias, float shadowRadius, vec4 shadowCoord ) {
			float shadow = 1.0;
			shadowCoord.xyz /= shadowCoord.w;
			#ifdef USE_REVERSED_DEPTH_BUFFER
				shadowCoord.z -= shadowBias;
			#else
				shadowCoord.z += shadowBias;
			#endif
			bool inFrustum = shadowCoord.x >= 0.0 && shadowCoord.x <= 1.0 && shadowCoord.y >= 0.0 && shadowCoord.y <= 1.0;
			bool frustumTest = inFrustum && shadowCoord.z <= 1.0;
			if ( frustumTest ) {
				vec2 texelSize = vec2( 1.0 ) / shadowMapSize;
				vec2 radius = shadowRadius * texelSize;
				float phi = interleavedGradientNoise( gl_FragCoord.xy ) * PI2;
				shadow = (
					texture( shadowMap, vec3( shadowCoord.xy + vogelDiskSample( 0, 5, phi ) * radius, shadowCoord.z ) ) +
					texture( shadowMap, vec3( shadowCoord.xy + vogelDiskSample( 1, 5, phi ) * radius, shadowCoord.z ) ) +
					texture( shadowMap, vec3( shadowCoord.xy + vogelDiskSample( 2, 5, phi ) * radius, shadowCoord.z ) ) +
					texture( shadowMap, vec3( shadowCoord.xy + vogelDiskSample( 3, 5, phi ) * radius, shadowCoord.z ) ) +
					texture( shadowMap, vec3( shadowCoord.xy + vogelDiskSample( 4, 5, phi ) * radius, shadowCoord.z ) )
				) * 0.2;
			}
			return mix( 1.0, shadow, shadowIntensity );
		}
	#elif defined( SHADOWMAP_TYPE_VSM )
		float getShadow( sampler2D shadowMap, vec2 shadowMapSize, float shadowIntensity, float shadowBias, float shadowRadius, vec4 shadowCoord ) {
			float shadow = 1.0;
			shadowCoord.xyz /= shadowCoord.w;
			#ifdef USE_REVERSED_DEPTH_BUFFER
				shadowCoord.z -= shadowBias;
			#else
				shadowCoord.z += shadowBias;
			#endif
			bool inFrustum = shadowCoord.x >= 0.0 && shadowCoord.x <= 1.0 && shadowCoord.y >= 0.0 && shadowCoord.y <= 1.0;
			bool frustumTest = inFrustum && shadowCoord.z <= 1.0;
			if ( frustumTest ) {
				vec2 distribution = texture2D( shadowMap, shadowCoord.xy ).rg;
				float mean = distribution.x;
				float variance = distribution.y * distribution.y;
				#ifdef USE_REVERSED_DEPTH_BUFFER
					float hard_shadow = step( mean, shadowCoord.z );
				#else
					float hard_shadow = step( shadowCoord.z, mean );
				#endif
				
				if ( hard_shadow == 1.0 ) {
					shadow = 1.0;
				} else {
					variance = max( variance, 0.0000001 );
					float d = shadowCoord.z - mean;
					float p_max = variance / ( variance + d * d );
					p_max = clamp( ( p_max - 0.3 ) / 0.65, 0.0, 1.0 );
					shadow = max( hard_shadow, p_max );
				}
			}
			return mix( 1.0, shadow, shadowIntensity );
		}
	#else
		float getShadow( sampler2D shadowMap, vec2 shadowMapSize, float shadowIntensity, float shadowBias, float shadowRadius, vec4 shadowCoord ) {
			float shadow = 1.0;
			shadowCoord.xyz /= shadowCoord.w;
			#ifdef USE_REVERSED_DEPTH_BUFFER
				shadowCoord.z -= shadowBias;
			#else
				shadowCoord.z += shadowBias;
			#endif
			bool inFrustum = shadowCoord.x >= 0.0 && shadowCoord.x <= 1.0 && shadowCoord.y >= 0.0 && shadowCoord.y <= 1.0;
			bool frustumTest = inFrustum && shadowCoord.z <= 1.0;
			if ( frustumTest ) {
				float depth = texture2D( shadowMap, shadowCoord.xy ).r;
				#ifdef USE_REVERSED_DEPTH_BUFFER
					shadow = step( depth, shadowCoord.z );
				#else
					shadow = step( shadowCoord.z, depth );
				#endif
			}
			return mix( 1.0, shadow, shadowIntensity );
		}
	#endif
	#if NUM_SUN_LIGHT_SHADOWS > 0
		float getSunShadow(
			#if defined( SHADOWMAP_TYPE_PCF )
				sampler2DShadow shadowMap,
			#else
				sampler2D shadowMap,
			#endif
			SunLightShadow sunLightShadow,
			int shadowIndex
		) {
			vec4 shadowWorldPosition = vec4( vSunShadowWorldPosition.xyz + vSunShadowWorldNormal * sunLightShadow.shadowNormalBias, 1.0 );
			float viewDepth = vSunShadowWorldPosition.w;
			int cascadeOffset = shadowIndex * SUN_LIGHT_CASCADES;
			float shadow = 1.0;
			for ( int i = SUN_LIGHT_CASCADES - 1; i >= 0; i -- ) {
				vec4 cascade = sunShadowCascade[ cascadeOffset + i ];
				if ( viewDepth >= cascade.x && viewDepth < cascade.y ) {
					float cascadeShadow = getShadow(
						shadowMap,
						sunLightShadow.shadowMapSize,
						sunLightShadow.shadowIntensity,
						sunLightShadow.shadowBias,
						sunLightShadow.shadowRadius,
						sunShadowMatrix[ cascadeOffset + i ] * shadowWorldPosition
					);
					shadow = mix( cascadeShadow, shadow, smoothstep( cascade.z, cascade.y, viewDepth ) );
				}
			}
			return shadow;
		}
	#endif
	#if NUM_POINT_LIGHT_SHADOWS > 0
	#if defined( SHADOWMAP_TYPE_PCF )
	float getPointShadow( samplerCubeShadow shadowMap, vec2 shadowMapSize, float shadowIntensity, float shadowBias, float shadowRadius, vec4 shadowCoord, float shadowCameraNear, float shadowCameraFar ) {
		float shadow = 1.0;
		vec3 lightToPosition = shadowCoord.xyz;
		vec3 bd3D = normalize( lightToPosition );
		vec3 absVec = abs( lightToPosition );
		float viewSpaceZ = max( max( absVec.x, absVec.y ), absVec.z );
		if ( viewSpaceZ - shadowCameraFar <= 0.0 && viewSpaceZ - shadowCameraNear >= 0.0 ) {
			float lightDistance = length( lightToPosition );
			float depthRange = shadowCameraFar - shadowCameraNear;
			#ifdef USE_REVERSED_DEPTH_BUFFER
				float depthA = - shadowCameraNear / depthRange - shadowBias;
				float depthB = shadowCameraNear * shadowCameraFar / ( depthRange * lightDistance );
			#else
				float depthA = shadowCameraFar / depthRange + shadowBias;
				float depthB = - shadowCameraNear * shadowCameraFar / ( depthRange * lightDistance );
			#endif
			float texelSize = shadowRadius / shadowMapSize.x;
			vec3 absDir = abs( bd3D );
			vec3 tangent = absDir.x > absDir.z ? vec3( 0.0, 1.0, 0.0 ) : vec3( 1.0, 0.0, 0.0 );
			tangent = normalize( cross( bd3D, tangent ) );
			vec3 bitangent = cross( bd3D, tangent );
			float phi = interleavedGradientNoise( gl_FragCoord.xy ) * PI2;
			shadow = 0.0;
			for ( int i = 0; i < 5; i ++ ) {
				vec2 offset = vogelDiskSample( i, 5, phi );
				vec3 direction = bd3D + ( tangent * offset.x + bitangent * offset.y ) * texelSize;
				vec3 absDirection = abs( direction );
				float dp = depthA + depthB / max( max( absDirection.x, absDirection.y ), absDirection.z );
				shadow += texture( shadowMap, vec4( direction, dp ) );
			}
			shadow *= 0.2;
		}
		return mix( 1.0, shadow, shadowIntensity );
	}
	#elif defined( SHADOWMAP_TYPE_BASIC )
	float getPointShadow( samplerCube shadowMap, vec2 shadowMapSize, float shadowIntensity, float shadowBias, float shadowRadius, vec4 shadowCoord, float shadowCameraNear, float shadowCameraFar ) {
		float shadow = 1.0;
		vec3 lightToPosition = shadowCoord.xyz;
		vec3 absVec = abs( lightToPosition );
		float viewSpaceZ = max( max( absVec.x, absVec.y ), absVec.z );
		if ( viewSpaceZ - shadowCameraFar <= 0.0 && viewSpaceZ - shadowCameraNear >= 0.0 ) {
			float dp = ( shadowCameraFar * ( viewSpaceZ - shadowCameraNear ) ) / ( viewSpaceZ * ( shadowCameraFar - shadowCameraNear ) );
			dp += shadowBias;
			vec3 bd3D = normalize( lightToPosition );
			float depth = textureCube( shadowMap, bd3D ).r;
			#ifdef USE_REVERSED_DEPTH_BUFFER
				depth = 1.0 - depth;
			#endif
			shadow = step( dp, depth );
		}
		return mix( 1.0, shadow, shadowIntensity );
	}
	#endif
	#endif
#endif`,zb=`#if NUM_SPOT_LIGHT_COORDS > 0
	uniform mat4 spotLightMatrix[ NUM_SPOT_LIGHT_COORDS ];
	varying vec4 vSpotLightCoord[ NUM_SPOT_LIGHT_COORDS ];
#endif
#ifdef USE_SHADOWMAP
	#if NUM_SUN_LIGHT_SHADOWS > 0
		varying vec4 vSunShadowWorldPosition;
		varying vec3 vSunShadowWorldNormal;
	#endif
	#if NUM_DIR_LIGHT_SHADOWS > 0
		uniform mat4 directionalShadowMatrix[ NUM_DIR_LIGHT_SHADOWS ];
		varying vec4 vDirectionalShadowCoord[ NUM_DIR_LIGHT_SHADOWS ];
		struct DirectionalLightShadow {
			float shadowIntensity;
			float shadowBias;
			float shadowNormalBias;
			float shadowRadius;
			vec2 shadowMapSize;
		};
		uniform DirectionalLightShadow directionalLightShadows[ NUM_DIR_LIGHT_SHADOWS ];
	#endif
	#if NUM_SPOT_LIGHT_SHADOWS > 0
		struct SpotLightShadow {
			float shadowIntensity;
			float shadowBias;
			float shadowNormalBias;
			float shadowRadius;
			vec2 shadowMapSize;
		};
		uniform SpotLightShadow spotLightShadows[ NUM_SPOT_LIGHT_SHADOWS ];
	#endif
	#if NUM_POINT_LIGHT_SHADOWS > 0
		uniform mat4 pointShadowMatrix[ NUM_POINT_LIGHT_SHADOWS ];
		varying vec4 vPointShadowCoord[ NUM_POINT_LIGHT_SHADOWS ];
		struct PointLightShadow {
			float shadowIntensity;
			float shadowBias;
			float shadowNormalBias;
			float shadowRadius;
			vec2 shadowMapSize;
			float shadowCameraNear;
			float shadowCameraFar;
		};
		uniform PointLightShadow pointLightShadows[ NUM_POINT_LIGHT_SHADOWS ];
	#endif
#endif`,Hb=`#if ( defined( USE_SHADOWMAP ) && ( NUM_DIR_LIGHT_SHADOWS > 0 || NUM_SUN_LIGHT_SHADOWS > 0 || NUM_POINT_LIGHT_SHADOWS > 0 ) ) || ( NUM_SPOT_LIGHT_COORDS > 0 )
	#ifdef HAS_NORMAL
		vec3 shadowWorldNormal = transformNormalByInverseViewMatrix( transformedNormal, viewMatrix );
	#else
		vec3 shadowWorldNormal = vec3( 0.0 );
	#endif
	vec4 shadowWorldPosition;
#endif
#if defined( USE_SHADOWMAP )
	#if NUM_SUN_LIGHT_SHADOWS > 0
		vSunShadowWorldPosition = vec4( worldPosition.xyz, - mvPosition.z );
		vSunShadowWorldNormal = shadowWorldNormal;
	#endif
	#if NUM_DIR_LIGHT_SHADOWS > 0
		#pragma unroll_loop_start
		for ( int i = 0; i < NUM_DIR_LIGHT_SHADOWS; i ++ ) {
			shadowWorldPosition = worldPosition + vec4( shadowWorldNormal * directionalLightShadows[ i ].shadowNormalBias, 0 );
			vDirectionalShadowCoord[ i ] = directionalShadowMatrix[ i ] * shadowWorldPosition;
		}
		#pragma unroll_loop_end
	#endif
	#if NUM_POINT_LIGHT_SHADOWS > 0
		#pragma unroll_loop_start
		for ( int i = 0; i < NUM_POINT_LIGHT_SHADOWS; i ++ ) {
			shadowWorldPosition = worldPosition + vec4( shadowWorldNormal * pointLightShadows[ i ].shadowNormalBias, 0 );
			vPointShadowCoord[ i ] = pointShadowMatrix[ i ] * shadowWorldPosition;
		}
		#pragma unroll_loop_end
	#endif
#endif
#if NUM_SPOT_LIGHT_COORDS > 0
	#pragma unroll_loop_start
	for ( int i = 0; i < NUM_SPOT_LIGHT_COORDS; i ++ ) {
		shadowWorldPosition = worldPosition;
		#if ( defined( USE_SHADOWMAP ) && UNROLLED_LOOP_INDEX < NUM_SPOT_LIGHT_SHADOWS )
			shadowWorldPosition.xyz += shadowWorldNormal * spotLightShadows[ i ].shadowNormalBias;
		#endif
		vSpotLightCoord[ i ] = spotLightMatrix[ i ] * shadowWorldPosition;
	}
	#pragma unroll_loop_end
#endif`,Vb=`float getShadowMask() {
	float shadow = 1.0;
	#ifdef USE_SHADOWMAP
	#if NUM_SUN_LIGHT_SHADOWS > 0
	SunLightShadow sunLight;
	#pragma unroll_loop_start
	for ( int i = 0; i < NUM_SUN_LIGHT_SHADOWS; i ++ ) {
		sunLight = sunLightShadows[ i ];
		shadow *= receiveShadow ? getSunShadow( sunShadowMap[ i ], sunLight, UNROLLED_LOOP_INDEX ) : 1.0;
	}
	#pragma unroll_loop_end
	#endif
	#if NUM_DIR_LIGHT_SHADOWS > 0
	DirectionalLightShadow directionalLight;
	#pragma unroll_loop_start
	for ( int i = 0; i < NUM_DIR_LIGHT_SHADOWS; i ++ ) {
		directionalLight = directionalLightShadows[ i ];
		shadow *= receiveShadow ? getShadow( directionalShadowMap[ i ], directionalLight.shadowMapSize, directionalLight.shadowIntensity, directionalLight.shadowBias, directionalLight.shadowRadius, vDirectionalShadowCoord[ i ] ) : 1.0;
	}
	#pragma unroll_loop_end
	#endif
	#if NUM_SPOT_LIGHT_SHADOWS > 0
	SpotLightShadow spotLight;
	#pragma unroll_loop_start
	for ( int i = 0; i < NUM_SPOT_LIGHT_SHADOWS; i ++ ) {
		spotLight = spotLightShadows[ i ];
		shadow *= receiveShadow ? getShadow( spotShadowMap[ i ], spotLight.shadowMapSize, spotLight.shadowIntensity, spotLight.shadowBias, spotLight.shadowRadius, vSpotLightCoord[ i ] ) : 1.0;
	}
	#pragma unroll_loop_end
	#endif
	#if NUM_POINT_LIGHT_SHADOWS > 0 && ( defined( SHADOWMAP_TYPE_PCF ) || defined( SHADOWMAP_TYPE_BASIC ) )
	PointLightShadow pointLight;
	#pragma unroll_loop_start
	for ( int i = 0; i < NUM_POINT_LIGHT_SHADOWS; i ++ ) {
		pointLight = pointLightShadows[ i ];
		shadow *= receiveShadow ? getPointShadow( pointShadowMap[ i ], pointLight.shadowMapSize, pointLight.shadowIntensity, pointLight.shadowBias, pointLight.shadowRadius, vPointShadowCoord[ i ], pointLight.shadowCameraNear, pointLight.shadowCameraFar ) : 1.0;
	}
	#pragma unroll_loop_end
	#endif
	#endif
	return shadow;
}`,Gb=`#ifdef USE_SKINNING
	mat4 boneMatX = getBoneMatrix( skinIndex.x );
	mat4 boneMatY = getBoneMatrix( skinIndex.y );
	mat4 boneMatZ = getBoneMatrix( skinIndex.z );
	mat4 boneMatW = getBoneMatrix( skinIndex.w );
#endif`,Wb=`#ifdef USE_SKINNING
	uniform mat4 bindMatrix;
	uniform mat4 bindMatrixInverse;
	uniform highp sampler2D boneTexture;
	mat4 getBoneMatrix( const in float i ) {
		int size = textureSize( boneTexture, 0 ).x;
		int j = int( i ) * 4;
		int x = j % size;
		int y = j / size;
		vec4 v1 = texelFetch( boneTexture, ivec2( x, y ), 0 );
		vec4 v2 = texelFetch( boneTexture, ivec2( x + 1, y ), 0 );
		vec4 v3 = texelFetch( boneTexture, ivec2( x + 2, y ), 0 );
		vec4 v4 = texelFetch( boneTexture, ivec2( x + 3, y ), 0 );
		return mat4( v1, v2, v3, v4 );
	}
#endif`,Xb=`#ifdef USE_SKINNING
	vec4 skinVertex = bindMatrix * vec4( transformed, 1.0 );
	vec4 skinned = vec4( 0.0 );
	skinned += boneMatX * skinVertex * skinWeight.x;
	skinned += boneMatY * skinVertex * skinWeight.y;
	skinned += boneMatZ * skinVertex * skinWeight.z;
	skinned += boneMatW * skinVertex * skinWeight.w;
	transformed = ( bindMatrixInverse * skinned ).xyz;
#endif`,qb=`#ifdef USE_SKINNING
	mat4 skinMatrix = mat4( 0.0 );
	skinMatrix += skinWeight.x * boneMatX;
	skinMatrix += skinWeight.y * boneMatY;
	skinMatrix += skinWeight.z * boneMatZ;
	skinMatrix += skinWeight.w * boneMatW;
	skinMatrix = bindMatrixInverse * skinMatrix * bindMatrix;
	objectNormal = vec4( skinMatrix * vec4( objectNormal, 0.0 ) ).xyz;
	#ifdef USE_TANGENT
		objectTangent = vec4( skinMatrix * vec4( objectTangent, 0.0 ) ).xyz;
	#endif
#endif`,Yb=`float specularStrength;
#ifdef USE_SPECULARMAP
	vec4 texelSpecular = texture2D( specularMap, vSpecularMapUv );
	specularStrength = texelSpecular.r;
#else
	specularStrength = 1.0;
#endif`,$b=`#ifdef USE_SPECULARMAP
	uniform sampler2D specularMap;
#endif`,Zb=`#if defined( TONE_MAPPING )
	gl_FragColor.rgb = toneMapping( gl_FragColor.rgb );
#endif`,Kb=`#ifndef saturate
#define saturate( a ) clamp( a, 0.0, 1.0 )
#endif
uniform float toneMappingExposure;
vec3 LinearToneMapping( vec3 color ) {
	return saturate( toneMappingExposure * color );
}
vec3 ReinhardToneMapping( vec3 color ) {
	color *= toneMappingExposure;
	return saturate( color / ( vec3( 1.0 ) + color ) );
}
vec3 CineonToneMapping( vec3 color ) {
	color *= toneMappingExposure;
	color = max( vec3( 0.0 ), color - 0.004 );
	return pow( ( color * ( 6.2 * color + 0.5 ) ) / ( color * ( 6.2 * color + 1.7 ) + 0.06 ), vec3( 2.2 ) );
}
vec3 RRTAndODTFit( vec3 v ) {
	vec3 a = v * ( v + 0.0245786 ) - 0.000090537;
	vec3 b = v * ( 0.983729 * v + 0.4329510 ) + 0.238081;
	return a / b;
}
vec3 ACESFilmicToneMapping( vec3 color ) {
	const mat3 ACESInputMat = mat3(
		vec3( 0.59719, 0.07600, 0.02840 ),		vec3( 0.35458, 0.90834, 0.13383 ),
		vec3( 0.04823, 0.01566, 0.83777 )
	);
	const mat3 ACESOutputMat = mat3(
		vec3(  1.60475, -0.10208, -0.00327 ),		vec3( -0.53108,  1.10813, -0.07276 ),
		vec3( -0.07367, -0.00605,  1.07602 )
	);
	color *= toneMappingExposure / 0.6;
	color = ACESInputMat * color;
	color = RRTAndODTFit( color );
	color = ACESOutputMat * color;
	return saturate( color );
}
const mat3 LINEAR_REC2020_TO_LINEAR_SRGB = mat3(
	vec3( 1.6605, - 0.1246, - 0.0182 ),
	vec3( - 0.5876, 1.1329, - 0.1006 ),
	vec3( - 0.0728, - 0.0083, 1.1187 )
);
const mat3 LINEAR_SRGB_TO_LINEAR_REC2020 = mat3(
	vec3( 0.6274, 0.0691, 0.0164 ),
	vec3( 0.3293, 0.9195, 0.0880 ),
	vec3( 0.0433, 0.0113, 0.8956 )
);
vec3 agxDefaultContrastApprox( vec3 x ) {
	vec3 x2 = x * x;
	vec3 x4 = x2 * x2;
	return + 15.5 * x4 * x2
		- 40.14 * x4 * x
		+ 31.96 * x4
		- 6.868 * x2 * x
		+ 0.4298 * x2
		+ 0.1191 * x
		- 0.00232;
}
vec3 AgXToneMapping( vec3 color ) {
	const mat3 AgXInsetMatrix = mat3(
		vec3( 0.856627153315983, 0.137318972929847, 0.11189821299995 ),
		vec3( 0.0951212405381588, 0.761241990602591, 0.0767994186031903 ),
		vec3( 0.0482516061458583, 0.101439036467562, 0.811302368396859 )
	);
	const mat3 AgXOutsetMatrix = mat3(
		vec3( 1.1271005818144368, - 0.1413297634984383, - 0.14132976349843826 ),
		vec3( - 0.11060664309660323, 1.157823702216272, - 0.11060664309660294 ),
		vec3( - 0.016493938717834573, - 0.016493938717834257, 1.2519364065950405 )
	);
	const float AgxMinEv = - 12.47393;	const float AgxMaxEv = 4.026069;
	color *= toneMappingExposure;
	color = LINEAR_SRGB_TO_LINEAR_REC2020 * color;
	color = AgXInsetMatrix * color;
	color = max( color, 1e-10 );	color = log2( color );
	color = ( color - AgxMinEv ) / ( AgxMaxEv - AgxMinEv );
	color = clamp( color, 0.0, 1.0 );
	color = agxDefaultContrastApprox( color );
	color = AgXOutsetMatrix * color;
	color = pow( max( vec3( 0.0 ), color ), vec3( 2.2 ) );
	color = LINEAR_REC2020_TO_LINEAR_SRGB * color;
	color = clamp( color, 0.0, 1.0 );
	return color;
}
vec3 NeutralToneMapping( vec3 color ) {
	const float StartCompression = 0.8 - 0.04;
	const float Desaturation = 0.15;
	color *= toneMappingExposure;
	float x = min( color.r, min( color.g, color.b ) );
	float offset = x < 0.08 ? x - 6.25 * x * x : 0.04;
	color -= offset;
	float peak = max( color.r, max( color.g, color.b ) );
	if ( peak < StartCompression ) return color;
	float d = 1. - StartCompression;
	float newPeak = 1. - d * d / ( peak + d - StartCompression );
	color *= newPeak / peak;
	float g = 1. - 1. / ( Desaturation * ( peak - newPeak ) + 1. );
	return mix( color, vec3( newPeak ), g );
}
vec3 CustomToneMapping( vec3 color ) { return color; }`,Jb=`#ifdef USE_TRANSMISSION
	material.transmission = transmission;
	material.transmissionAlpha = 1.0;
	material.thickness = thickness;
	material.attenuationDistance = attenuationDistance;
	material.attenuationColor = attenuationColor;
	#ifdef USE_TRANSMISSIONMAP
		material.transmission *= texture2D( transmissionMap, vTransmissionMapUv ).r;
	#endif
	#ifdef USE_THICKNESSMAP
		material.thickness *= texture2D( thicknessMap, vThicknessMapUv ).g;
	#endif
	vec3 pos = vWorldPosition;
	vec3 v = normalize( cameraPosition - pos );
	vec3 n = transformNormalByInverseViewMatrix( normal, viewMatrix );
	vec4 transmitted = getIBLVolumeRefraction(
		n, v, material.roughness, material.diffuseContribution, material.specularColorBlended, material.specularF90,
		pos, modelMatrix, viewMatrix, projectionMatrix, material.dispersion, material.ior, material.thickness,
		material.attenuationColor, material.attenuationDistance );
	material.transmissionAlpha = mix( material.transmissionAlpha, transmitted.a, material.transmission );
	totalDiffuse = mix( totalDiffuse, transmitted.rgb, material.transmission );
#endif`,jb=`#ifdef USE_TRANSMISSION
	uniform float transmission;
	uniform float thickness;
	uniform float attenuationDistance;
	uniform vec3 attenuationColor;
	#ifdef USE_TRANSMISSIONMAP
		uniform sampler2D transmissionMap;
	#endif
	#ifdef USE_THICKNESSMAP
		uniform sampler2D thicknessMap;
	#endif
	uniform vec2 transmissionSamplerSize;
	uniform sampler2D transmissionSamplerMap;
	uniform mat4 modelMatrix;
	uniform mat4 projectionMatrix;
	varying vec3 vWorldPosition;
	float w0( float a ) {
		return ( 1.0 / 6.0 ) * ( a * ( a * ( - a + 3.0 ) - 3.0 ) + 1.0 );
	}
	float w1( float a ) {
		return ( 1.0 / 6.0 ) * ( a *  a * ( 3.0 * a - 6.0 ) + 4.0 );
	}
	float w2( float a ){
		return ( 1.0 / 6.0 ) * ( a * ( a * ( - 3.0 * a + 3.0 ) + 3.0 ) + 1.0 );
	}
	float w3( float a ) {
		return ( 1.0 / 6.0 ) * ( a * a * a );
	}
	float g0( float a ) {
		return w0( a ) + w1( a );
	}
	float g1( float a ) {
		return w2( a ) + w3( a );
	}
	float h0( float a ) {
		return - 1.0 + w1( a ) / ( w0( a ) + w1( a ) );
	}
	float h1( float a ) {
		return 1.0 + w3( a ) / ( w2( a ) + w3( a ) );
	}
	vec4 bicubic( sampler2D tex, vec2 uv, vec4 texelSize, float lod ) {
		uv = uv * texelSize.zw + 0.5;
		vec2 iuv = floor( uv );
		vec2 fuv = fract( uv );
		float g0x = g0( fuv.x );
		float g1x = g1( fuv.x );
		float h0x = h0( fuv.x );
		float h1x = h1( fuv.x );
		float h0y = h0( fuv.y );
		float h1y = h1( fuv.y );
		vec2 p0 = ( vec2( iuv.x + h0x, iuv.y + h0y ) - 0.5 ) * texelSize.xy;
		vec2 p1 = ( vec2( iuv.x + h1x, iuv.y + h0y ) - 0.5 ) * texelSize.xy;
		vec2 p2 = ( vec2( iuv.x + h0x, iuv.y + h1y ) - 0.5 ) * texelSize.xy;
		vec2 p3 = ( vec2( iuv.x + h1x, iuv.y + h1y ) - 0.5 ) * texelSize.xy;
		return g0( fuv.y ) * ( g0x * textureLod( tex, p0, lod ) + g1x * textureLod( tex, p1, lod ) ) +
			g1( fuv.y ) * ( g0x * textureLod( tex, p2, lod ) + g1x * textureLod( tex, p3, lod ) );
	}
	vec4 textureBicubic( sampler2D sampler, vec2 uv, float lod ) {
		vec2 fLodSize = vec2( textureSize( sampler, int( lod ) ) );
		vec2 cLodSize = vec2( textureSize( sampler, int( lod + 1.0 ) ) );
		vec2 fLodSizeInv = 1.0 / fLodSize;
		vec2 cLodSizeInv = 1.0 / cLodSize;
		vec4 fSample = bicubic( sampler, uv, vec4( fLodSizeInv, fLodSize ), floor( lod ) );
		vec4 cSample = bicubic( sampler, uv, vec4( cLodSizeInv, cLodSize ), ceil( lod ) );
		return mix( fSample, cSample, fract( lod ) );
	}
	vec3 getVolumeTransmissionRay( const in vec3 n, const in vec3 v, const in float thickness, const in float ior, const in mat4 modelMatrix ) {
		vec3 refractionVector = refract( - v, normalize( n ), 1.0 / ior );
		vec3 modelScale;
		modelScale.x = length( vec3( modelMatrix[ 0 ].xyz ) );
		modelScale.y = length( vec3( modelMatrix[ 1 ].xyz ) );
		modelScale.z = length( vec3( modelMatrix[ 2 ].xyz ) );
		return normalize( refractionVector ) * thickness * modelScale;
	}
	float applyIorToRoughness( const in float roughness, const in float ior ) {
		return roughness * clamp( ior * 2.0 - 2.0, 0.0, 1.0 );
	}
	vec4 getTransmissionSample( const in vec2 fragCoord, const in float roughness, const in float ior ) {
		float lod = log2( transmissionSamplerSize.x ) * applyIorToRoughness( roughness, ior );
		return textureBicubic( transmissionSamplerMap, fragCoord.xy, lod );
	}
	vec3 volumeAttenuation( const in float transmissionDistance, const in vec3 attenuationColor, const in float attenuationDistance ) {
		if ( isinf( attenuationDistance ) ) {
			return vec3( 1.0 );
		} else {
			vec3 attenuationCoefficient = -log( attenuationColor ) / attenuationDistance;
			vec3 transmittance = exp( - attenuationCoefficient * transmissionDistance );			return transmittance;
		}
	}
	vec4 getIBLVolumeRefraction( const in vec3 n, const in vec3 v, const in float roughness, const in vec3 diffuseColor,
		const in vec3 specularColor, const in float specularF90, const in vec3 position, const in mat4 modelMatrix,
		const in mat4 viewMatrix, const in mat4 projMatrix, const in float dispersion, const in float ior, const in float thickness,
		const in vec3 attenuationColor, const in float attenuationDistance ) {
		vec4 transmittedLight;
		vec3 transmittance;
		#ifdef USE_DISPERSION
			float halfSpread = ( ior - 1.0 ) * 0.025 * dispersion;
			vec3 iors = vec3( ior - halfSpread, ior, ior + halfSpread );
			for ( int i = 0; i < 3; i ++ ) {
				vec3 transmissionRay = getVolumeTransmissionRay( n, v, thickness, iors[ i ], modelMatrix );
				vec3 refractedRayExit = position + transmissionRay;
				vec4 ndcPos = projMatrix * viewMatrix * vec4( refractedRayExit, 1.0 );
				vec2 refractionCoords = ndcPos.xy / ndcPos.w;
				refractionCoords += 1.0;
				refractionCoords /= 2.0;
				vec4 transmissionSample = getTransmissionSample( refractionCoords, roughness, iors[ i ] );
				transmittedLight[ i ] = transmissionSample[ i ];
				transmittedLight.a += transmissionSample.a;
				transmittance[ i ] = diffuseColor[ i ] * volumeAttenuation( length( transmissionRay ), attenuationColor, attenuationDistance )[ i ];
			}
			transmittedLight.a /= 3.0;
		#else
			vec3 transmissionRay = getVolumeTransmissionRay( n, v, thickness, ior, modelMatrix );
			vec3 refractedRayExit = position + transmissionRay;
			vec4 ndcPos = projMatrix * viewMatrix * vec4( refractedRayExit, 1.0 );
			vec2 refractionCoords = ndcPos.xy / ndcPos.w;
			refractionCoords += 1.0;
			refractionCoords /= 2.0;
			transmittedLight = getTransmissionSample( refractionCoords, roughness, ior );
			transmittance = diffuseColor * volumeAttenuation( length( transmissionRay ), attenuationColor, attenuationDistance );
		#endif
		vec3 attenuatedColor = transmittance * transmittedLight.rgb;
		vec3 F = EnvironmentBRDF( n, v, specularColor, specularF90, roughness );
		float transmittanceFactor = ( transmittance.r + transmittance.g + transmittance.b ) / 3.0;
		return vec4( ( 1.0 - F ) * attenuatedColor, 1.0 - ( 1.0 - transmittedLight.a ) * transmittanceFactor );
	}
#endif`,Qb=`#if defined( USE_UV ) || defined( USE_ANISOTROPY )
	varying vec2 vUv;
#endif
#ifdef USE_MAP
	varying vec2 vMapUv;
#endif
#ifdef USE_ALPHAMAP
	varying vec2 vAlphaMapUv;
#endif
#ifdef USE_LIGHTMAP
	varying vec2 vLightMapUv;
#endif
#ifdef USE_AOMAP
	varying vec2 vAoMapUv;
#endif
#ifdef USE_BUMPMAP
	varying vec2 vBumpMapUv;
#endif
#ifdef USE_NORMALMAP
	varying vec2 vNormalMapUv;
#endif
#ifdef USE_EMISSIVEMAP
	varying vec2 vEmissiveMapUv;
#endif
#ifdef USE_METALNESSMAP
	varying vec2 vMetalnessMapUv;
#endif
#ifdef USE_ROUGHNESSMAP
	varying vec2 vRoughnessMapUv;
#endif
#ifdef USE_DIFFUSE_ROUGHNESSMAP
	varying vec2 vDiffuseRoughnessMapUv;
#endif
#ifdef USE_ANISOTROPYMAP
	varying vec2 vAnisotropyMapUv;
#endif
#ifdef USE_CLEARCOATMAP
	varying vec2 vClearcoatMapUv;
#endif
#ifdef USE_CLEARCOAT_NORMALMAP
	varying vec2 vClearcoatNormalMapUv;
#endif
#ifdef USE_CLEARCOAT_ROUGHNESSMAP
	varying vec2 vClearcoatRoughnessMapUv;
#endif
#ifdef USE_IRIDESCENCEMAP
	varying vec2 vIridescenceMapUv;
#endif
#ifdef USE_IRIDESCENCE_THICKNESSMAP
	varying vec2 vIridescenceThicknessMapUv;
#endif
#ifdef USE_SHEEN_COLORMAP
	varying vec2 vSheenColorMapUv;
#endif
#ifdef USE_SHEEN_ROUGHNESSMAP
	varying vec2 vSheenRoughnessMapUv;
#endif
#ifdef USE_SPECULARMAP
	varying vec2 vSpecularMapUv;
#endif
#ifdef USE_SPECULAR_COLORMAP
	varying vec2 vSpecularColorMapUv;
#endif
#ifdef USE_SPECULAR_INTENSITYMAP
	varying vec2 vSpecularIntensityMapUv;
#endif
#ifdef USE_TRANSMISSIONMAP
	uniform mat3 transmissionMapTransform;
	varying vec2 vTransmissionMapUv;
#endif
#ifdef USE_THICKNESSMAP
	uniform mat3 thicknessMapTransform;
	varying vec2 vThicknessMapUv;
#endif`,eS=`#if defined( USE_UV ) || defined( USE_ANISOTROPY )
	varying vec2 vUv;
#endif
#ifdef USE_MAP
	uniform mat3 mapTransform;
	varying vec2 vMapUv;
#endif
#ifdef USE_ALPHAMAP
	uniform mat3 alphaMapTransform;
	varying vec2 vAlphaMapUv;
#endif
#ifdef USE_LIGHTMAP
	uniform mat3 lightMapTransform;
	varying vec2 vLightMapUv;
#endif
#ifdef USE_AOMAP
	uniform mat3 aoMapTransform;
	varying vec2 vAoMapUv;
#endif
#ifdef USE_BUMPMAP
	uniform mat3 bumpMapTransform;
	varying vec2 vBumpMapUv;
#endif
#ifdef USE_NORMALMAP
	uniform mat3 normalMapTransform;
	varying vec2 vNormalMapUv;
#endif
#ifdef USE_DISPLACEMENTMAP
	uniform mat3 displacementMapTransform;
	varying vec2 vDisplacementMapUv;
#endif
#ifdef USE_EMISSIVEMAP
	uniform mat3 emissiveMapTransform;
	varying vec2 vEmissiveMapUv;
#endif
#ifdef USE_METALNESSMAP
	uniform mat3 metalnessMapTransform;
	varying vec2 vMetalnessMapUv;
#endif
#ifdef USE_ROUGHNESSMAP
	uniform mat3 roughnessMapTransform;
	varying vec2 vRoughnessMapUv;
#endif
#ifdef USE_DIFFUSE_ROUGHNESSMAP
	uniform mat3 diffuseRoughnessMapTransform;
	varying vec2 vDiffuseRoughnessMapUv;
#endif
#ifdef USE_ANISOTROPYMAP
	uniform mat3 anisotropyMapTransform;
	varying vec2 vAnisotropyMapUv;
#endif
#ifdef USE_CLEARCOATMAP
	uniform mat3 clearcoatMapTransform;
	varying vec2 vClearcoatMapUv;
#endif
#ifdef USE_CLEARCOAT_NORMALMAP
	uniform mat3 clearcoatNormalMapTransform;
	varying vec2 vClearcoatNormalMapUv;
#endif
#ifdef USE_CLEARCOAT_ROUGHNESSMAP
	uniform mat3 clearcoatRoughnessMapTransform;
	varying vec2 vClearcoatRoughnessMapUv;
#endif
#ifdef USE_SHEEN_COLORMAP
	uniform mat3 sheenColorMapTransform;
	varying vec2 vSheenColorMapUv;
#endif
#ifdef USE_SHEEN_ROUGHNESSMAP
	uniform mat3 sheenRoughnessMapTransform;
	varying vec2 vSheenRoughnessMapUv;
#endif
#ifdef USE_IRIDESCENCEMAP
	uniform mat3 iridescenceMapTransform;
	varying vec2 vIridescenceMapUv;
#endif
#ifdef USE_IRIDESCENCE_THICKNESSMAP
	uniform mat3 iridescenceThicknessMapTransform;
	varying vec2 vIridescenceThicknessMapUv;
#endif
#ifdef USE_SPECULARMAP
	uniform mat3 specularMapTransform;
	varying vec2 vSpecularMapUv;
#endif
#ifdef USE_SPECULAR_COLORMAP
	uniform mat3 specularColorMapTransform;
	varying vec2 vSpecularColorMapUv;
#endif
#ifdef USE_SPECULAR_INTENSITYMAP
	uniform mat3 specularIntensityMapTransform;
	varying vec2 vSpecularIntensityMapUv;
#endif
#ifdef USE_TRANSMISSIONMAP
	uniform mat3 transmissionMapTransform;
	varying vec2 vTransmissionMapUv;
#endif
#ifdef USE_THICKNESSMAP
	uniform mat3 thicknessMapTransform;
	varying vec2 vThicknessMapUv;
#endif`,tS=`#if defined( USE_UV ) || defined( USE_ANISOTROPY )
	vUv = vec3( uv, 1 ).xy;
#endif
#ifdef USE_MAP
	vMapUv = ( mapTransform * vec3( MAP_UV, 1 ) ).xy;
#endif
#ifdef USE_ALPHAMAP
	vAlphaMapUv = ( alphaMapTransform * vec3( ALPHAMAP_UV, 1 ) ).xy;
#endif
#ifdef USE_LIGHTMAP
	vLightMapUv = ( lightMapTransform * vec3( LIGHTMAP_UV, 1 ) ).xy;
#endif
#ifdef USE_AOMAP
	vAoMapUv = ( aoMapTransform * vec3( AOMAP_UV, 1 ) ).xy;
#endif
#ifdef USE_BUMPMAP
	vBumpMapUv = ( bumpMapTransform * vec3( BUMPMAP_UV, 1 ) ).xy;
#endif
#ifdef USE_NORMALMAP
	vNormalMapUv = ( normalMapTransform * vec3( NORMALMAP_UV, 1 ) ).xy;
#endif
#ifdef USE_DISPLACEMENTMAP
	vDisplacementMapUv = ( displacementMapTransform * vec3( DISPLACEMENTMAP_UV, 1 ) ).xy;
#endif
#ifdef USE_EMISSIVEMAP
	vEmissiveMapUv = ( emissiveMapTransform * vec3( EMISSIVEMAP_UV, 1 ) ).xy;
#endif
#ifdef USE_METALNESSMAP
	vMetalnessMapUv = ( metalnessMapTransform * vec3( METALNESSMAP_UV, 1 ) ).xy;
#endif
#ifdef USE_ROUGHNESSMAP
	vRoughnessMapUv = ( roughnessMapTransform * vec3( ROUGHNESSMAP_UV, 1 ) ).xy;
#endif
#ifdef USE_DIFFUSE_ROUGHNESSMAP
	vDiffuseRoughnessMapUv = ( diffuseRoughnessMapTransform * vec3( DIFFUSE_ROUGHNESSMAP_UV, 1 ) ).xy;
#endif
#ifdef USE_ANISOTROPYMAP
	vAnisotropyMapUv = ( anisotropyMapTransform * vec3( ANISOTROPYMAP_UV, 1 ) ).xy;
#endif
#ifdef USE_CLEARCOATMAP
	vClearcoatMapUv = ( clearcoatMapTransform * vec3( CLEARCOATMAP_UV, 1 ) ).xy;
#endif
#ifdef USE_CLEARCOAT_NORMALMAP
	vClearcoatNormalMapUv = ( clearcoatNormalMapTransform * vec3( CLEARCOAT_NORMALMAP_UV, 1 ) ).xy;
#endif
#ifdef USE_CLEARCOAT_ROUGHNESSMAP
	vClearcoatRoughnessMapUv = ( clearcoatRoughnessMapTransform * vec3( CLEARCOAT_ROUGHNESSMAP_UV, 1 ) ).xy;
#endif
#ifdef USE_IRIDESCENCEMAP
	vIridescenceMapUv = ( iridescenceMapTransform * vec3( IRIDESCENCEMAP_UV, 1 ) ).xy;
#endif
#ifdef USE_IRIDESCENCE_THICKNESSMAP
	vIridescenceThicknessMapUv = ( iridescenceThicknessMapTransform * vec3( IRIDESCENCE_THICKNESSMAP_UV, 1 ) ).xy;
#endif
#ifdef USE_SHEEN_COLORMAP
	vSheenColorMapUv = ( sheenColorMapTransform * vec3( SHEEN_COLORMAP_UV, 1 ) ).xy;
#endif
#ifdef USE_SHEEN_ROUGHNESSMAP
	vSheenRoughnessMapUv = ( sheenRoughnessMapTransform * vec3( SHEEN_ROUGHNESSMAP_UV, 1 ) ).xy;
#endif
#ifdef USE_SPECULARMAP
	vSpecularMapUv = ( specularMapTransform * vec3( SPECULARMAP_UV, 1 ) ).xy;
#endif
#ifdef USE_SPECULAR_COLORMAP
	vSpecularColorMapUv = ( specularColorMapTransform * vec3( SPECULAR_COLORMAP_UV, 1 ) ).xy;
#endif
#ifdef USE_SPECULAR_INTENSITYMAP
	vSpecularIntensityMapUv = ( specularIntensityMapTransform * vec3( SPECULAR_INTENSITYMAP_UV, 1 ) ).xy;
#endif
#ifdef USE_TRANSMISSIONMAP
	vTransmissionMapUv = ( transmissionMapTransform * vec3( TRANSMISSIONMAP_UV, 1 ) ).xy;
#endif
#ifdef USE_THICKNESSMAP
	vThicknessMapUv = ( thicknessMapTransform * vec3( THICKNESSMAP_UV, 1 ) ).xy;
#endif`,nS=`#if defined( USE_ENVMAP ) || defined( DISTANCE ) || defined ( USE_SHADOWMAP ) || defined ( USE_TRANSMISSION ) || NUM_SPOT_LIGHT_COORDS > 0
	vec4 worldPosition = vec4( transformed, 1.0 );
	#ifdef USE_BATCHING
		worldPosition = batchingMatrix * worldPosition;
	#endif
	#ifdef USE_INSTANCING
		worldPosition = instanceMatrix * worldPosition;
	#endif
	worldPosition = modelMatrix * worldPosition;
#endif`,iS=`varying vec2 vUv;
uniform mat3 uvTransform;
void main() {
	vUv = ( uvTransform * vec3( uv, 1 ) ).xy;
	gl_Position = vec4( position.xy, 1.0, 1.0 );
}`,sS=`uniform sampler2D t2D;
uniform float backgroundIntensity;
varying vec2 vUv;
void main() {
	vec4 texColor = texture2D( t2D, vUv );
	#ifdef DECODE_VIDEO_TEXTURE
		texColor = vec4( mix( pow( texColor.rgb * 0.9478672986 + vec3( 0.0521327014 ), vec3( 2.4 ) ), texColor.rgb * 0.0773993808, vec3( lessThanEqual( texColor.rgb, vec3( 0.04045 ) ) ) ), texColor.w );
	#endif
	texColor.rgb *= backgroundIntensity;
	gl_FragColor = texColor;
	#include <tonemapping_fragment>
	#include <colorspace_fragment>
}`,rS=`varying vec3 vWorldDirection;
#include <common>
void main() {
	vWorldDirection = transformDirection( position, modelMatrix );
	#include <begin_vertex>
	#include <project_vertex>
	gl_Position.z = gl_Position.w;
}`,oS=`uniform float backgroundBlurriness;
uniform float backgroundIntensity;
uniform mat3 backgroundRotation;
varying vec3 vWorldDirection;
#include <envmap_common_pars_fragment>
void main() {
	#ifdef ENVMAP_TYPE_PMREM
		vec4 texColor = textureLod( envMap, backgroundRotation * vWorldDirection, roughnessToMip( backgroundBlurriness ) );
	#else
		vec4 texColor = textureCube( envMap, backgroundRotation * vWorldDirection );
	#endif
	texColor.rgb *= backgroundIntensity;
	gl_FragColor = texColor;
	#include <tonemapping_fragment>
	#include <colorspace_fragment>
}`,aS=`varying vec3 vWorldDirection;
#include <common>
void main() {
	vWorldDirection = transformDirection( position, modelMatrix );
	#include <begin_vertex>
	#include <project_vertex>
	gl_Position.z = gl_Position.w;
}`,lS=`uniform samplerCube tCube;
uniform float tFlip;
uniform float opacity;
varying vec3 vWorldDirection;
void main() {
	vec4 texColor = textureCube( tCube, vec3( tFlip * vWorldDirection.x, vWorldDirection.yz ) );
	gl_FragColor = texColor;
	gl_FragColor.a *= opacity;
	#include <tonemapping_fragment>
	#include <colorspace_fragment>
}`,cS=`#include <common>
#include <batching_pars_vertex>
#include <uv_pars_vertex>
#include <displacementmap_pars_vertex>
#include <morphtarget_pars_vertex>
#include <skinning_pars_vertex>
#include <logdepthbuf_pars_vertex>
#include <clipping_planes_pars_vertex>
varying vec2 vHighPrecisionZW;
void main() {
	#include <uv_vertex>
	#include <batching_vertex>
	#include <skinbase_vertex>
	#include <morphinstance_vertex>
	#ifdef USE_DISPLACEMENTMAP
		#include <beginnormal_vertex>
		#include <morphnormal_vertex>
		#include <skinnormal_vertex>
	#endif
	#include <begin_vertex>
	#include <morphtarget_vertex>
	#include <skinning_vertex>
	#include <displacementmap_vertex>
	#include <project_vertex>
	#include <logdepthbuf_vertex>
	#include <clipping_planes_vertex>
	vHighPrecisionZW = gl_Position.zw;
}`,hS=`#if DEPTH_PACKING == 3200
	uniform float opacity;
#endif
#include <common>
#include <packing>
#include <uv_pars_fragment>
#include <map_pars_fragment>
#include <alphamap_pars_fragment>
#include <alphatest_pars_fragment>
#include <alphahash_pars_fragment>
#include <logdepthbuf_pars_fragment>
#include <clipping_planes_pars_fragment>
varying vec2 vHighPrecisionZW;
void main() {
	vec4 diffuseColor = vec4( 1.0 );
	#include <clipping_planes_fragment>
	#if DEPTH_PACKING == 3200
		diffuseColor.a = opacity;
	#endif
	#include <map_fragment>
	#include <alphamap_fragment>
	#include <alphatest_fragment>
	#include <alphahash_fragment>
	#include <logdepthbuf_fragment>
	#ifdef USE_REVERSED_DEPTH_BUFFER
		float fragCoordZ = vHighPrecisionZW[ 0 ] / vHighPrecisionZW[ 1 ];
	#else
		float fragCoordZ = 0.5 * vHighPrecisionZW[ 0 ] / vHighPrecisionZW[ 1 ] + 0.5;
	#endif
	#if DEPTH_PACKING == 3200
		gl_FragColor = vec4( vec3( 1.0 - fragCoordZ ), opacity );
	#elif DEPTH_PACKING == 3201
		gl_FragColor = packDepthToRGBA( fragCoordZ );
	#elif DEPTH_PACKING == 3202
		gl_FragColor = vec4( packDepthToRGB( fragCoordZ ), 1.0 );
	#elif DEPTH_PACKING == 3203
		gl_FragColor = vec4( packDepthToRG( fragCoordZ ), 0.0, 1.0 );
	#endif
}`,uS=`#define DISTANCE
varying vec3 vWorldPosition;
#include <common>
#include <batching_pars_vertex>
#include <uv_pars_vertex>
#include <displacementmap_pars_vertex>
#include <morphtarget_pars_vertex>
#include <skinning_pars_vertex>
#include <clipping_planes_pars_vertex>
void main() {
	#include <uv_vertex>
	#include <batching_vertex>
	#include <skinbase_vertex>
	#include <morphinstance_vertex>
	#ifdef USE_DISPLACEMENTMAP
		#include <beginnormal_vertex>
		#include <morphnormal_vertex>
		#include <skinnormal_vertex>
	#endif
	#include <begin_vertex>
	#include <morphtarget_vertex>
	#include <skinning_vertex>
	#include <displacementmap_vertex>
	#include <project_vertex>
	#include <worldpos_vertex>
	#include <clipping_planes_vertex>
	vWorldPosition = worldPosition.xyz;
}`,dS=`#define DISTANCE
uniform vec3 referencePosition;
uniform float nearDistance;
uniform float farDistance;
varying vec3 vWorldPosition;
#include <common>
#include <uv_pars_fragment>
#include <map_pars_fragment>
#include <alphamap_pars_fragment>
#include <alphatest_pars_fragment>
#include <alphahash_pars_fragment>
#include <clipping_planes_pars_fragment>
void main() {
	vec4 diffuseColor = vec4( 1.0 );
	#include <clipping_planes_fragment>
	#include <map_fragment>
	#include <alphamap_fragment>
	#include <alphatest_fragment>
	#include <alphahash_fragment>
	float dist = length( vWorldPosition - referencePosition );
	dist = ( dist - nearDistance ) / ( farDistance - nearDistance );
	dist = saturate( dist );
	gl_FragColor = vec4( dist, 0.0, 0.0, 1.0 );
}`,fS=`varying vec3 vWorldDirection;
#include <common>
void main() {
	vWorldDirection = transformDirection( position, modelMatrix );
	#include <begin_vertex>
	#include <project_vertex>
}`,pS=`uniform sampler2D tEquirect;
varying vec3 vWorldDirection;
#include <common>
void main() {
	vec3 direction = normalize( vWorldDirection );
	vec2 sampleUV = equirectUv( direction );
	gl_FragColor = texture2D( tEquirect, sampleUV );
	#include <tonemapping_fragment>
	#include <colorspace_fragment>
}`,mS=`uniform float scale;
attribute float lineDistance;
varying float vLineDistance;
#include <common>
#include <uv_pars_vertex>
#include <color_pars_vertex>
#include <fog_pars_vertex>
#include <morphtarget_pars_vertex>
#include <logdepthbuf_pars_vertex>
#include <clipping_planes_pars_vertex>
void main() {
	vLineDistance = scale * lineDistance;
	#include <uv_vertex>
	#include <color_vertex>
	#include <morphinstance_vertex>
	#include <morphcolor_vertex>
	#include <begin_vertex>
	#include <morphtarget_vertex>
	#include <project_vertex>
	#include <logdepthbuf_vertex>
	#include <clipping_planes_vertex>
	#include <fog_vertex>
}`,gS=`uniform vec3 diffuse;
uniform float opacity;
uniform float dashSize;
uniform float totalSize;
varying float vLineDistance;
#include <common>
#include <color_pars_fragment>
#include <uv_pars_fragment>
#include <map_pars_fragment>
#include <fog_pars_fragment>
#include <logdepthbuf_pars_fragment>
#include <clipping_planes_pars_fragment>
void main() {
	vec4 diffuseColor = vec4( diffuse, opacity );
	#include <clipping_planes_fragment>
	if ( mod( vLineDistance, totalSize ) > dashSize ) {
		discard;
	}
	vec3 outgoingLight = vec3( 0.0 );
	#include <logdepthbuf_fragment>
	#include <map_fragment>
	#include <color_fragment>
	outgoingLight = diffuseColor.rgb;
	#include <opaque_fragment>
	#include <tonemapping_fragment>
	#include <colorspace_fragment>
	#include <fog_fragment>
	#include <premultiplied_alpha_fragment>
}`,_S=`#include <common>
#include <batching_pars_vertex>
#include <uv_pars_vertex>
#include <envmap_pars_vertex>
#include <color_pars_vertex>
#include <fog_pars_vertex>
#include <morphtarget_pars_vertex>
#include <skinning_pars_vertex>
#include <logdepthbuf_pars_vertex>
#include <clipping_planes_pars_vertex>
void main() {
	#include <uv_vertex>
	#include <color_vertex>
	#include <morphinstance_vertex>
	#include <morphcolor_vertex>
	#include <batching_vertex>
	#if defined ( USE_ENVMAP ) || defined ( USE_SKINNING )
		#include <beginnormal_vertex>
		#include <morphnormal_vertex>
		#include <skinbase_vertex>
		#include <skinnormal_vertex>
		#include <defaultnormal_vertex>
	#endif
	#include <begin_vertex>
	#include <morphtarget_vertex>
	#include <skinning_vertex>
	#include <project_vertex>
	#include <logdepthbuf_vertex>
	#include <clipping_planes_vertex>
	#include <worldpos_vertex>
	#include <envmap_vertex>
	#include <fog_vertex>
}`,xS=`uniform vec3 diffuse;
uniform float opacity;
#ifndef FLAT_SHADED
	varying vec3 vNormal;
#endif
#include <common>
#include <dithering_pars_fragment>
#include <color_pars_fragment>
#include <uv_pars_fragment>
#include <map_pars_fragment>
#include <alphamap_pars_fragment>
#include <alphatest_pars_fragment>
#include <alphahash_pars_fragment>
#include <aomap_pars_fragment>
#include <lightmap_pars_fragment>
#include <envmap_common_pars_fragment>
#include <envmap_pars_fragment>
#include <fog_pars_fragment>
#include <specularmap_pars_fragment>
#include <logdepthbuf_pars_fragment>
#include <clipping_planes_pars_fragment>
void main() {
	vec4 diffuseColor = vec4( diffuse, opacity );
	#include <clipping_planes_fragment>
	#include <logdepthbuf_fragment>
	#include <map_fragment>
	#include <color_fragment>
	#include <alphamap_fragment>
	#include <alphatest_fragment>
	#include <alphahash_fragment>
	#include <specularmap_fragment>
	ReflectedLight reflectedLight = ReflectedLight( vec3( 0.0 ), vec3( 0.0 ), vec3( 0.0 ), vec3( 0.0 ) );
	#ifdef USE_LIGHTMAP
		vec4 lightMapTexel = texture2D( lightMap, vLightMapUv );
		reflectedLight.indirectDiffuse += lightMapTexel.rgb * lightMapIntensity * RECIPROCAL_PI;
	#else
		reflectedLight.indirectDiffuse += vec3( 1.0 );
	#endif
	#include <aomap_fragment>
	reflectedLight.indirectDiffuse *= diffuseColor.rgb;
	vec3 outgoingLight = reflectedLight.indirectDiffuse;
	#include <envmap_fragment>
	#include <opaque_fragment>
	#include <tonemapping_fragment>
	#include <colorspace_fragment>
	#include <fog_fragment>
	#include <premultiplied_alpha_fragment>
	#include <dithering_fragment>
}`,vS=`#define LAMBERT
varying vec3 vViewPosition;
#include <common>
#include <batching_pars_vertex>
#include <uv_pars_vertex>
#include <displacementmap_pars_vertex>
#include <envmap_pars_vertex>
#include <color_pars_vertex>
#include <fog_pars_vertex>
#include <normal_pars_vertex>
#include <morphtarget_pars_vertex>
#include <skinning_pars_vertex>
#include <shadowmap_pars_vertex>
#include <logdepthbuf_pars_vertex>
#include <clipping_planes_pars_vertex>
void main() {
	#include <uv_vertex>
	#include <color_vertex>
	#include <morphinstance_vertex>
	#include <morphcolor_vertex>
	#include <batching_vertex>
	#include <beginnormal_vertex>
	#include <morphnormal_vertex>
	#include <skinbase_vertex>
	#include <skinnormal_vertex>
	#include <defaultnormal_vertex>
	#include <normal_vertex>
	#include <begin_vertex>
	#include <morphtarget_vertex>
	#include <skinning_vertex>
	#include <displacementmap_vertex>
	#include <project_vertex>
	#include <logdepthbuf_vertex>
	#include <clipping_planes_vertex>
	vViewPosition = - mvPosition.xyz;
	#include <worldpos_vertex>
	#include <envmap_vertex>
	#include <shadowmap_vertex>
	#include <fog_vertex>
}`,yS=`#define LAMBERT
uniform vec3 diffuse;
uniform vec3 emissive;
uniform float opacity;
#include <common>
#include <dithering_pars_fragment>
#include <color_pars_fragment>
#include <uv_pars_fragment>
#include <map_pars_fragment>
#include <alphamap_pars_fragment>
#include <alphatest_pars_fragment>
#include <alphahash_pars_fragment>
#include <aomap_pars_fragment>
#include <lightmap_pars_fragment>
#include <emissivemap_pars_fragment>
#include <envmap_common_pars_fragment>
#include <envmap_pars_fragment>
#include <envmap_physical_pars_fragment>
#include <fog_pars_fragment>
#include <bsdfs>
#include <lights_pars_begin>
#include <normal_pars_fragment>
#include <lights_lambert_pars_fragment>
#include <shadowmap_pars_fragment>
#include <bumpmap_pars_fragment>
#include <normalmap_pars_fragment>
#include <specularmap_pars_fragment>
#include <logdepthbuf_pars_fragment>
#include <clipping_planes_pars_fragment>
void main() {
	vec4 diffuseColor = vec4( diffuse, opacity );
	#include <clipping_planes_fragment>
	ReflectedLight reflectedLight = ReflectedLight( vec3( 0.0 ), vec3( 0.0 ), vec3( 0.0 ), vec3( 0.0 ) );
	vec3 totalEmissiveRadiance = emissive;
	#include <logdepthbuf_fragment>
	#include <map_fragment>
	#include <color_fragment>
	#include <alphamap_fragment>
	#include <alphatest_fragment>
	#include <alphahash_fragment>
	#include <specularmap_fragment>
	#include <normal_fragment_begin>
	#include <normal_fragment_maps>
	#include <emissivemap_fragment>
	#include <lights_lambert_fragment>
	#include <lights_fragment_begin>
	#include <lights_fragment_maps>
	#include <lights_fragment_end>
	#include <aomap_fragment>
	vec3 outgoingLight = reflectedLight.directDiffuse + reflectedLight.indirectDiffuse + totalEmissiveRadiance;
	#include <envmap_fragment>
	#include <opaque_fragment>
	#include <tonemapping_fragment>
	#include <colorspace_fragment>
	#include <fog_fragment>
	#include <premultiplied_alpha_fragment>
	#include <dithering_fragment>
}`,bS=`#define MATCAP
varying vec3 vViewPosition;
#include <common>
#include <batching_pars_vertex>
#include <uv_pars_vertex>
#include <color_pars_vertex>
#include <displacementmap_pars_vertex>
#include <fog_pars_vertex>
#include <normal_pars_vertex>
#include <morphtarget_pars_vertex>
#include <skinning_pars_vertex>
#include <logdepthbuf_pars_vertex>
#include <clipping_planes_pars_vertex>
void main() {
	#include <uv_vertex>
	#include <color_vertex>
	#include <morphinstance_vertex>
	#include <morphcolor_vertex>
	#include <batching_vertex>
	#include <beginnormal_vertex>
	#include <morphnormal_vertex>
	#include <skinbase_vertex>
	#include <skinnormal_vertex>
	#include <defaultnormal_vertex>
	#include <normal_vertex>
	#include <begin_vertex>
	#include <morphtarget_vertex>
	#include <skinning_vertex>
	#include <displacementmap_vertex>
	#include <project_vertex>
	#include <logdepthbuf_vertex>
	#include <clipping_planes_vertex>
	#include <fog_vertex>
	vViewPosition = - mvPosition.xyz;
}`,SS=`#define MATCAP
uniform vec3 diffuse;
uniform float opacity;
uniform sampler2D matcap;
varying vec3 vViewPosition;
#include <common>
#include <dithering_pars_fragment>
#include <color_pars_fragment>
#include <uv_pars_fragment>
#include <map_pars_fragment>
#include <alphamap_pars_fragment>
#include <alphatest_pars_fragment>
#include <alphahash_pars_fragment>
#include <fog_pars_fragment>
#include <normal_pars_fragment>
#include <bumpmap_pars_fragment>
#include <normalmap_pars_fragment>
#include <logdepthbuf_pars_fragment>
#include <clipping_planes_pars_fragment>
void main() {
	vec4 diffuseColor = vec4( diffuse, opacity );
	#include <clipping_planes_fragment>
	#include <logdepthbuf_fragment>
	#include <map_fragment>
	#include <color_fragment>
	#include <alphamap_fragment>
	#include <alphatest_fragment>
	#include <alphahash_fragment>
	#include <normal_fragment_begin>
	#include <normal_fragment_maps>
	vec3 viewDir = normalize( vViewPosition );
	vec3 x = normalize( vec3( viewDir.z, 0.0, - viewDir.x ) );
	vec3 y = cross( viewDir, x );
	vec2 uv = vec2( dot( x, normal ), dot( y, normal ) ) * 0.495 + 0.5;
	#ifdef USE_MATCAP
		vec4 matcapColor = texture2D( matcap, uv );
	#else
		vec4 matcapColor = vec4( vec3( mix( 0.2, 0.8, uv.y ) ), 1.0 );
	#endif
	vec3 outgoingLight = diffuseColor.rgb * matcapColor.rgb;
	#include <opaque_fragment>
	#include <tonemapping_fragment>
	#include <colorspace_fragment>
	#include <fog_fragment>
	#include <premultiplied_alpha_fragment>
	#include <dithering_fragment>
}`,MS=`#define NORMAL
#if defined( FLAT_SHADED ) || defined( USE_BUMPMAP ) || defined( USE_NORMALMAP_TANGENTSPACE )
	varying vec3 vViewPosition;
#endif
#include <common>
#include <batching_pars_vertex>
#include <uv_pars_vertex>
#include <displacementmap_pars_vertex>
#include <normal_pars_vertex>
#include <morphtarget_pars_vertex>
#include <skinning_pars_vertex>
#include <logdepthbuf_pars_vertex>
#include <clipping_planes_pars_vertex>
void main() {
	#include <uv_vertex>
	#include <batching_vertex>
	#include <beginnormal_vertex>
	#include <morphinstance_vertex>
	#include <morphnormal_vertex>
	#include <skinbase_vertex>
	#include <skinnormal_vertex>
	#include <defaultnormal_vertex>
	#include <normal_vertex>
	#include <begin_vertex>
	#include <morphtarget_vertex>
	#include <skinning_vertex>
	#include <displacementmap_vertex>
	#include <project_vertex>
	#include <logdepthbuf_vertex>
	#include <clipping_planes_vertex>
#if defined( FLAT_SHADED ) || defined( USE_BUMPMAP ) || defined( USE_NORMALMAP_TANGENTSPACE )
	vViewPosition = - mvPosition.xyz;
#endif
}`,wS=`#define NORMAL
uniform float opacity;
#if defined( FLAT_SHADED ) || defined( USE_BUMPMAP ) || defined( USE_NORMALMAP_TANGENTSPACE )
	varying vec3 vViewPosition;
#endif
#include <uv_pars_fragment>
#include <normal_pars_fragment>
#include <bumpmap_pars_fragment>
#include <normalmap_pars_fragment>
#include <logdepthbuf_pars_fragment>
#include <clipping_planes_pars_fragment>
void main() {
	vec4 diffuseColor = vec4( 0.0, 0.0, 0.0, opacity );
	#include <clipping_planes_fragment>
	#include <logdepthbuf_fragment>
	#include <normal_fragment_begin>
	#include <normal_fragment_maps>
	gl_FragColor = vec4( normalize( normal ) * 0.5 + 0.5, diffuseColor.a );
	#ifdef OPAQUE
		gl_FragColor.a = 1.0;
	#endif
}`,ES=`#define PHONG
varying vec3 vViewPosition;
#include <common>
#include <batching_pars_vertex>
#include <uv_pars_vertex>
#include <displacementmap_pars_vertex>
#include <envmap_pars_vertex>
#include <color_pars_vertex>
#include <fog_pars_vertex>
#include <normal_pars_vertex>
#include <morphtarget_pars_vertex>
#include <skinning_pars_vertex>
#include <shadowmap_pars_vertex>
#include <logdepthbuf_pars_vertex>
#include <clipping_planes_pars_vertex>
void main() {
	#include <uv_vertex>
	#include <color_vertex>
	#include <morphcolor_vertex>
	#include <batching_vertex>
	#include <beginnormal_vertex>
	#include <morphinstance_vertex>
	#include <morphnormal_vertex>
	#include <skinbase_vertex>
	#include <skinnormal_vertex>
	#include <defaultnormal_vertex>
	#include <normal_vertex>
	#include <begin_vertex>
	#include <morphtarget_vertex>
	#include <skinning_vertex>
	#include <displacementmap_vertex>
	#include <project_vertex>
	#include <logdepthbuf_vertex>
	#include <clipping_planes_vertex>
	vViewPosition = - mvPosition.xyz;
	#include <worldpos_vertex>
	#include <envmap_vertex>
	#include <shadowmap_vertex>
	#include <fog_vertex>
}`,TS=`#define PHONG
uniform vec3 diffuse;
uniform vec3 emissive;
uniform vec3 specular;
uniform float shininess;
uniform float opacity;
#include <common>
#include <dithering_pars_fragment>
#include <color_pars_fragment>
#include <uv_pars_fragment>
#include <map_pars_fragment>
#include <alphamap_pars_fragment>
#include <alphatest_pars_fragment>
#include <alphahash_pars_fragment>
#include <aomap_pars_fragment>
#include <lightmap_pars_fragment>
#include <emissivemap_pars_fragment>
#include <envmap_common_pars_fragment>
#include <envmap_pars_fragment>
#include <envmap_physical_pars_fragment>
#include <fog_pars_fragment>
#include <bsdfs>
#include <lights_pars_begin>
#include <normal_pars_fragment>
#include <lights_phong_pars_fragment>
#include <shadowmap_pars_fragment>
#include <bumpmap_pars_fragment>
#include <normalmap_pars_fragment>
#include <specularmap_pars_fragment>
#include <logdepthbuf_pars_fragment>
#include <clipping_planes_pars_fragment>
void main() {
	vec4 diffuseColor = vec4( diffuse, opacity );
	#include <clipping_planes_fragment>
	ReflectedLight reflectedLight = ReflectedLight( vec3( 0.0 ), vec3( 0.0 ), vec3( 0.0 ), vec3( 0.0 ) );
	vec3 totalEmissiveRadiance = emissive;
	#include <logdepthbuf_fragment>
	#include <map_fragment>
	#include <color_fragment>
	#include <alphamap_fragment>
	#include <alphatest_fragment>
	#include <alphahash_fragment>
	#include <specularmap_fragment>
	#include <normal_fragment_begin>
	#include <normal_fragment_maps>
	#include <emissivemap_fragment>
	#include <lights_phong_fragment>
	#include <lights_fragment_begin>
	#include <lights_fragment_maps>
	#include <lights_fragment_end>
	#include <aomap_fragment>
	vec3 outgoingLight = reflectedLight.directDiffuse + reflectedLight.indirectDiffuse + reflectedLight.directSpecular + reflectedLight.indirectSpecular + totalEmissiveRadiance;
	#include <envmap_fragment>
	#include <opaque_fragment>
	#include <tonemapping_fragment>
	#include <colorspace_fragment>
	#include <fog_fragment>
	#include <premultiplied_alpha_fragment>
	#include <dithering_fragment>
}`,AS=`#define STANDARD
varying vec3 vViewPosition;
#ifdef USE_TRANSMISSION
	varying vec3 vWorldPosition;
#endif
#include <common>
#include <batching_pars_vertex>
#include <uv_pars_vertex>
#include <displacementmap_pars_vertex>
#include <color_pars_vertex>
#include <fog_pars_vertex>
#include <normal_pars_vertex>
#include <morphtarget_pars_vertex>
#include <skinning_pars_vertex>
#include <shadowmap_pars_vertex>
#include <logdepthbuf_pars_vertex>
#include <clipping_planes_pars_vertex>
void main() {
	#include <uv_vertex>
	#include <color_vertex>
	#include <morphinstance_vertex>
	#include <morphcolor_vertex>
	#include <batching_vertex>
	#include <beginnormal_vertex>
	#include <morphnormal_vertex>
	#include <skinbase_vertex>
	#include <skinnormal_vertex>
	#include <defaultnormal_vertex>
	#include <normal_vertex>
	#include <begin_vertex>
	#include <morphtarget_vertex>
	#include <skinning_vertex>
	#include <displacementmap_vertex>
	#include <project_vertex>
	#include <logdepthbuf_vertex>
	#include <clipping_planes_vertex>
	vViewPosition = - mvPosition.xyz;
	#include <worldpos_vertex>
	#include <shadowmap_vertex>
	#include <fog_vertex>
#ifdef USE_TRANSMISSION
	vWorldPosition = worldPosition.xyz;
#endif
}`,RS=`#define STANDARD
#ifdef PHYSICAL
	#define IOR
	#define USE_SPECULAR
#endif
uniform vec3 diffuse;
uniform vec3 emissive;
uniform float roughness;
uniform float metalness;
uniform float opacity;
#ifdef IOR
	uniform float ior;
#endif
#ifdef USE_SPECULAR
	uniform float specularIntensity;
	uniform vec3 specularColor;
	#ifdef USE_SPECULAR_COLORMAP
		uniform sampler2D specularColorMap;
	#endif
	#ifdef USE_SPECULAR_INTENSITYMAP
		uniform sampler2D specularIntensityMap;
	#endif
#endif
#ifdef USE_CLEARCOAT
	uniform float clearcoat;
	uniform float clearcoatRoughness;
#endif
#ifdef USE_DIFFUSE_ROUGHNESS
	uniform float diffuseRoughness;
	#ifdef USE_DIFFUSE_ROUGHNESSMAP
		uniform sampler2D diffuseRoughnessMap;
	#endif
#endif
#ifdef USE_DISPERSION
	uniform float dispersion;
#endif
#ifdef USE_RETROREFLECTION
	uniform float retroreflectivity;
#endif
#ifdef USE_IRIDESCENCE
	uniform float iridescence;
	uniform float iridescenceIOR;
	uniform float iridescenceThicknessMinimum;
	uniform float iridescenceThicknessMaximum;
#endif
#ifdef USE_SHEEN
	uniform vec3 sheenColor;
	uniform float sheenRoughness;
	#ifdef USE_SHEEN_COLORMAP
		uniform sampler2D sheenColorMap;
	#endif
	#ifdef USE_SHEEN_ROUGHNESSMAP
		uniform sampler2D sheenRoughnessMap;
	#endif
#endif
#ifdef USE_ANISOTROPY
	uniform vec2 anisotropyVector;
	#ifdef USE_ANISOTROPYMAP
		uniform sampler2D anisotropyMap;
	#endif
#endif
varying vec3 vViewPosition;
#include <common>
#include <dithering_pars_fragment>
#include <color_pars_fragment>
#include <uv_pars_fragment>
#include <map_pars_fragment>
#include <alphamap_pars_fragment>
#include <alphatest_pars_fragment>
#include <alphahash_pars_fragment>
#include <aomap_pars_fragment>
#include <lightmap_pars_fragment>
#include <emissivemap_pars_fragment>
#include <iridescence_fragment>
#include <envmap_common_pars_fragment>
#include <envmap_physical_pars_fragment>
#include <fog_pars_fragment>
#include <lights_pars_begin>
#include <normal_pars_fragment>
#include <lights_physical_pars_fragment>
#include <transmission_pars_fragment>
#include <shadowmap_pars_fragment>
#include <bumpmap_pars_fragment>
#include <normalmap_pars_fragment>
#include <clearcoat_pars_fragment>
#include <iridescence_pars_fragment>
#include <roughnessmap_pars_fragment>
#include <metalnessmap_pars_fragment>
#include <logdepthbuf_pars_fragment>
#include <clipping_planes_pars_fragment>
void main() {
	vec4 diffuseColor = vec4( diffuse, opacity );
	#include <clipping_planes_fragment>
	ReflectedLight reflectedLight = ReflectedLight( vec3( 0.0 ), vec3( 0.0 ), vec3( 0.0 ), vec3( 0.0 ) );
	vec3 totalEmissiveRadiance = emissive;
	#include <logdepthbuf_fragment>
	#include <map_fragment>
	#include <color_fragment>
	#include <alphamap_fragment>
	#include <alphatest_fragment>
	#include <alphahash_fragment>
	#include <roughnessmap_fragment>
	#include <metalnessmap_fragment>
	#include <normal_fragment_begin>
	#include <normal_fragment_maps>
	#include <clearcoat_normal_fragment_begin>
	#include <clearcoat_normal_fragment_maps>
	#include <emissivemap_fragment>
	#include <lights_physical_fragment>
	#include <lights_fragment_begin>
	#include <lights_fragment_maps>
	#include <lights_fragment_end>
	#include <aomap_fragment>
	vec3 totalDiffuse = reflectedLight.directDiffuse + reflectedLight.indirectDiffuse;
	vec3 totalSpecular = reflectedLight.directSpecular + reflectedLight.indirectSpecular;
	#include <transmission_fragment>
	vec3 outgoingLight = totalDiffuse + totalSpecular + totalEmissiveRadiance;
	#ifdef USE_SHEEN
 
		outgoingLight = outgoingLight + sheenSpecularDirect + sheenSpecularIndirect;
 
 	#endif
	#ifdef USE_CLEARCOAT
		float dotNVcc = saturate( dot( geometryClearcoatNormal, geometryViewDir ) );
		vec3 Fcc = F_Schlick( material.clearcoatF0, material.clearcoatF90, dotNVcc );
		outgoingLight = outgoingLight * ( 1.0 - material.clearcoat * Fcc ) + ( clearcoatSpecularDirect + clearcoatSpecularIndirect ) * material.clearcoat;
	#endif
	#include <opaque_fragment>
	#include <tonemapping_fragment>
	#include <colorspace_fragment>
	#include <fog_fragment>
	#include <premultiplied_alpha_fragment>
	#include <dithering_fragment>
}`,CS=`#define TOON
varying vec3 vViewPosition;
#include <common>
#include <batching_pars_vertex>
#include <uv_pars_vertex>
#include <displacementmap_pars_vertex>
#include <color_pars_vertex>
#include <fog_pars_vertex>
#include <normal_pars_vertex>
#include <morphtarget_pars_vertex>
#include <skinning_pars_vertex>
#include <shadowmap_pars_vertex>
#include <logdepthbuf_pars_vertex>
#include <clipping_planes_pars_vertex>
void main() {
	#include <uv_vertex>
	#include <color_vertex>
	#include <morphinstance_vertex>
	#include <morphcolor_vertex>
	#include <batching_vertex>
	#include <beginnormal_vertex>
	#include <morphnormal_vertex>
	#include <skinbase_vertex>
	#include <skinnormal_vertex>
	#include <defaultnormal_vertex>
	#include <normal_vertex>
	#include <begin_vertex>
	#include <morphtarget_vertex>
	#include <skinning_vertex>
	#include <displacementmap_vertex>
	#include <project_vertex>
	#include <logdepthbuf_vertex>
	#include <clipping_planes_vertex>
	vViewPosition = - mvPosition.xyz;
	#include <worldpos_vertex>
	#include <shadowmap_vertex>
	#include <fog_vertex>
}`,PS=`#define TOON
uniform vec3 diffuse;
uniform vec3 emissive;
uniform float opacity;
#include <common>
#include <dithering_pars_fragment>
#include <color_pars_fragment>
#include <uv_pars_fragment>
#include <map_pars_fragment>
#include <alphamap_pars_fragment>
#include <alphatest_pars_fragment>
#include <alphahash_pars_fragment>
#include <aomap_pars_fragment>
#include <lightmap_pars_fragment>
#include <emissivemap_pars_fragment>
#include <gradientmap_pars_fragment>
#include <fog_pars_fragment>
#include <bsdfs>
#include <lights_pars_begin>
#include <normal_pars_fragment>
#include <lights_toon_pars_fragment>
#include <shadowmap_pars_fragment>
#include <bumpmap_pars_fragment>
#include <normalmap_pars_fragment>
#include <logdepthbuf_pars_fragment>
#include <clipping_planes_pars_fragment>
void main() {
	vec4 diffuseColor = vec4( diffuse, opacity );
	#include <clipping_planes_fragment>
	ReflectedLight reflectedLight = ReflectedLight( vec3( 0.0 ), vec3( 0.0 ), vec3( 0.0 ), vec3( 0.0 ) );
	vec3 totalEmissiveRadiance = emissive;
	#include <logdepthbuf_fragment>
	#include <map_fragment>
	#include <color_fragment>
	#include <alphamap_fragment>
	#include <alphatest_fragment>
	#include <alphahash_fragment>
	#include <normal_fragment_begin>
	#include <normal_fragment_maps>
	#include <emissivemap_fragment>
	#include <lights_toon_fragment>
	#include <lights_fragment_begin>
	#include <lights_fragment_maps>
	#include <lights_fragment_end>
	#include <aomap_fragment>
	vec3 outgoingLight = reflectedLight.directDiffuse + reflectedLight.indirectDiffuse + totalEmissiveRadiance;
	#include <opaque_fragment>
	#include <tonemapping_fragment>
	#include <colorspace_fragment>
	#include <fog_fragment>
	#include <premultiplied_alpha_fragment>
	#include <dithering_fragment>
}`,IS=`uniform float size;
uniform float scale;
#include <common>
#include <color_pars_vertex>
#include <fog_pars_vertex>
#include <morphtarget_pars_vertex>
#include <logdepthbuf_pars_vertex>
#include <clipping_planes_pars_vertex>
#ifdef USE_POINTS_UV
	varying vec2 vUv;
	uniform mat3 uvTransform;
#endif
void main() {
	#ifdef USE_POINTS_UV
		vUv = ( uvTransform * vec3( uv, 1 ) ).xy;
	#endif
	#include <color_vertex>
	#include <morphinstance_vertex>
	#include <morphcolor_vertex>
	#include <begin_vertex>
	#include <morphtarget_vertex>
	#include <project_vertex>
	gl_PointSize = size;
	#ifdef USE_SIZEATTENUATION
		bool isPerspective = isPerspectiveMatrix( projectionMatrix );
		if ( isPerspective ) gl_PointSize *= ( scale / - mvPosition.z );
	#endif
	#include <logdepthbuf_vertex>
	#include <clipping_planes_vertex>
	#include <worldpos_vertex>
	#include <fog_vertex>
}`,LS=`uniform vec3 diffuse;
uniform float opacity;
#include <common>
#include <color_pars_fragment>
#include <map_particle_pars_fragment>
#include <alphatest_pars_fragment>
#include <alphahash_pars_fragment>
#include <fog_pars_fragment>
#include <logdepthbuf_pars_fragment>
#include <clipping_planes_pars_fragment>
void main() {
	vec4 diffuseColor = vec4( diffuse, opacity );
	#include <clipping_planes_fragment>
	vec3 outgoingLight = vec3( 0.0 );
	#include <logdepthbuf_fragment>
	#include <map_particle_fragment>
	#include <color_fragment>
	#include <alphatest_fragment>
	#include <alphahash_fragment>
	outgoingLight = diffuseColor.rgb;
	#include <opaque_fragment>
	#include <tonemapping_fragment>
	#include <colorspace_fragment>
	#include <fog_fragment>
	#include <premultiplied_alpha_fragment>
}`,DS=`#include <common>
#include <batching_pars_vertex>
#include <fog_pars_vertex>
#include <morphtarget_pars_vertex>
#include <skinning_pars_vertex>
#include <logdepthbuf_pars_vertex>
#include <shadowmap_pars_vertex>
void main() {
	#include <batching_vertex>
	#include <beginnormal_vertex>
	#include <morphinstance_vertex>
	#include <morphnormal_vertex>
	#include <skinbase_vertex>
	#include <skinnormal_vertex>
	#include <defaultnormal_vertex>
	#include <begin_vertex>
	#include <morphtarget_vertex>
	#include <skinning_vertex>
	#include <project_vertex>
	#include <logdepthbuf_vertex>
	#include <worldpos_vertex>
	#include <shadowmap_vertex>
	#include <fog_vertex>
}`,NS=`uniform vec3 color;
uniform float opacity;
#include <common>
#include <fog_pars_fragment>
#include <bsdfs>
#include <lights_pars_begin>
#include <logdepthbuf_pars_fragment>
#include <shadowmap_pars_fragment>
#include <shadowmask_pars_fragment>
void main() {
	#include <logdepthbuf_fragment>
	gl_FragColor = vec4( color, opacity * ( 1.0 - getShadowMask() ) );
	#include <tonemapping_fragment>
	#include <colorspace_fragment>
	#include <fog_fragment>
	#include <premultiplied_alpha_fragment>
}`,US=`uniform float rotation;
uniform vec2 center;
#include <common>
#include <uv_pars_vertex>
#include <fog_pars_vertex>
#include <logdepthbuf_pars_vertex>
#include <clipping_planes_pars_vertex>
void main() {
	#include <uv_vertex>
	vec4 mvPosition = modelViewMatrix[ 3 ];
	vec2 scale = vec2( length( modelMatrix[ 0 ].xyz ), length( modelMatrix[ 1 ].xyz ) );
	#ifndef USE_SIZEATTENUATION
		bool isPerspective = isPerspectiveMatrix( projectionMatrix );
		if ( isPerspective ) scale *= - mvPosition.z;
	#endif
	vec2 alignedPosition = ( position.xy - ( center - vec2( 0.5 ) ) ) * scale;
	vec2 rotatedPosition;
	rotatedPosition.x = cos( rotation ) * alignedPosition.x - sin( rotation ) * alignedPosition.y;
	rotatedPosition.y = sin( rotation ) * alignedPosition.x + cos( rotation ) * alignedPosition.y;
	mvPosition.xy += rotatedPosition;
	gl_Position = projectionMatrix * mvPosition;
	#include <logdepthbuf_vertex>
	#include <clipping_planes_vertex>
	#include <fog_vertex>
}`,OS=`uniform vec3 diffuse;
uniform float opacity;
#include <common>
#include <uv_pars_fragment>
#include <map_pars_fragment>
#include <alphamap_pars_fragment>
#include <alphatest_pars_fragment>
#include <alphahash_pars_fragment>
#include <fog_pars_fragment>
#include <logdepthbuf_pars_fragment>
#include <clipping_planes_pars_fragment>
void main() {
	vec4 diffuseColor = vec4( diffuse, opacity );
	#include <clipping_planes_fragment>
	vec3 outgoingLight = vec3( 0.0 );
	#include <logdepthbuf_fragment>
	#include <map_fragment>
	#include <alphamap_fragment>
	#include <alphatest_fragment>
	#include <alphahash_fragment>
	outgoingLight = diffuseColor.rgb;
	#include <opaque_fragment>
	#include <tonemapping_fragment>
	#include <colorspace_fragment>
	#include <fog_fragment>
}`,ht={alphahash_fragment:sy,alphahash_pars_fragment:ry,alphamap_fragment:oy,alphamap_pars_fragment:ay,alphatest_fragment:ly,alphatest_pars_fragment:cy,aomap_fragment:hy,aomap_pars_fragment:uy,batching_pars_vertex:dy,batching_vertex:fy,begin_vertex:py,beginnormal_vertex:my,bsdfs:gy,iridescence_fragment:_y,bumpmap_pars_fragment:xy,clipping_planes_fragment:vy,clipping_planes_pars_fragment:yy,clipping_planes_pars_vertex:by,clipping_planes_vertex:Sy,color_fragment:My,color_pars_fragment:wy,color_pars_vertex:Ey,color_vertex:Ty,common:Ay,defaultnormal_vertex:Ry,displacementmap_pars_vertex:Cy,displacementmap_vertex:Py,emissivemap_fragment:Iy,emissivemap_pars_fragment:Ly,colorspace_fragment:Dy,colorspace_pars_fragment:Ny,envmap_fragment:Uy,envmap_common_pars_fragment:Oy,envmap_pars_fragment:Fy,envmap_pars_vertex:By,envmap_physical_pars_fragment:Zy,envmap_vertex:ky,fog_vertex:zy,fog_pars_vertex:Hy,fog_fragment:Vy,fog_pars_fragment:Gy,gradientmap_pars_fragment:Wy,lightmap_pars_fragment:Xy,lights_lambert_fragment:qy,lights_lambert_pars_fragment:Yy,lights_pars_begin:$y,lights_toon_fragment:Ky,lights_toon_pars_fragment:Jy,lights_phong_fragment:jy,lights_phong_pars_fragment:Qy,lights_physical_fragment:eb,lights_physical_pars_fragment:tb,lights_fragment_begin:nb,lights_fragment_maps:ib,lights_fragment_end:sb,lightprobes_pars_fragment:rb,logdepthbuf_fragment:ob,logdepthbuf_pars_fragment:ab,logdepthbuf_pars_vertex:lb,logdepthbuf_vertex:cb,map_fragment:hb,map_pars_fragment:ub,map_particle_fragment:db,map_particle_pars_fragment:fb,metalnessmap_fragment:pb,metalnessmap_pars_fragment:mb,morphinstance_vertex:gb,morphcolor_vertex:_b,morphnormal_vertex:xb,morphtarget_pars_vertex:vb,morphtarget_vertex:yb,normal_fragment_begin:bb,normal_fragment_maps:Sb,normal_pars_fragment:Mb,normal_pars_vertex:wb,normal_vertex:Eb,normalmap_pars_fragment:Tb,clearcoat_normal_fragment_begin:Ab,clearcoat_normal_fragment_maps:Rb,clearcoat_pars_fragment:Cb,iridescence_pars_fragment:Pb,opaque_fragment:Ib,packing:Lb,premultiplied_alpha_fragment:Db,project_vertex:Nb,dithering_fragment:Ub,dithering_pars_fragment:Ob,roughnessmap_fragment:Fb,roughnessmap_pars_fragment:Bb,shadowmap_pars_fragment:kb,shadowmap_pars_vertex:zb,shadowmap_vertex:Hb,shadowmask_pars_fragment:Vb,skinbase_vertex:Gb,skinning_pars_vertex:Wb,skinning_vertex:Xb,skinnormal_vertex:qb,specularmap_fragment:Yb,specularmap_pars_fragment:$b,tonemapping_fragment:Zb,tonemapping_pars_fragment:Kb,transmission_fragment:Jb,transmission_pars_fragment:jb,uv_pars_fragment:Qb,uv_pars_vertex:eS,uv_vertex:tS,worldpos_vertex:nS,background_vert:iS,background_frag:sS,backgroundCube_vert:rS,backgroundCube_frag:oS,cube_vert:aS,cube_frag:lS,depth_vert:cS,depth_frag:hS,distance_vert:uS,distance_frag:dS,equirect_vert:fS,equirect_frag:pS,linedashed_vert:mS,linedashed_frag:gS,meshbasic_vert:_S,meshbasic_frag:xS,meshlambert_vert:vS,meshlambert_frag:yS,meshmatcap_vert:bS,meshmatcap_frag:SS,meshnormal_vert:MS,meshnormal_frag:wS,meshphong_vert:ES,meshphong_frag:TS,meshphysical_vert:AS,meshphysical_frag:RS,meshtoon_vert:CS,meshtoon_frag:PS,points_vert:IS,points_frag:LS,shadow_vert:DS,shadow_frag:NS,sprite_vert:US,sprite_frag:OS},De={common:{diffuse:{value:new gt(16777215)},opacity:{value:1},map:{value:null},mapTransform:{value:new tt},alphaMap:{value:null},alphaMapTransform:{value:new tt},alphaTest:{value:0}},specularmap:{specularMap:{value:null},specularMapTransform:{value:new tt}},envmap:{envMap:{value:null},envMapRotation:{value:new tt},reflectivity:{value:1},ior:{value:1.5},refractionRatio:{value:.98},dfgLUT:{value:null}},aomap:{aoMap:{value:null},aoMapIntensity:{value:1},aoMapTransform:{value:new tt}},lightmap:{lightMap:{value:null},lightMapIntensity:{value:1},lightMapTransform:{value:new tt}},bumpmap:{bumpMap:{value:null},bumpMapTransform:{value:new tt},bumpScale:{value:1}},normalmap:{normalMap:{value:null},normalMapTransform:{value:new tt},normalScale:{value:new ze(1,1)}},displacementmap:{displacementMap:{value:null},displacementMapTransform:{value:new tt},displacementScale:{value:1},displacementBias:{value:0}},emissivemap:{emissiveMap:{value:null},emissiveMapTransform:{value:new tt}},metalnessmap:{metalnessMap:{value:null},metalnessMapTransform:{value:new tt}},roughnessmap:{roughnessMap:{value:null},roughnessMapTransform:{value:new tt}},gradientmap:{gradientMap:{value:null}},fog:{fogDensity:{value:25e-5},fogNear:{value:1},fogFar:{value:2e3},fogColor:{value:new gt(16777215)}},lights:{ambientLightColor:{value:[]},lightProbe:{value:[]},sunLights:{value:[],properties:{direction:{},color:{}}},sunLightShadows:{value:[],properties:{shadowIntensity:1,shadowBias:{},shadowNormalBias:{},shadowRadius:{},shadowMapSize:{}}},sunShadowMatrix:{value:[]},sunShadowCascade:{value:[]},directionalLights:{value:[],properties:{direction:{},color:{}}},directionalLightShadows:{value:[],properties:{shadowIntensity:1,shadowBias:{},shadowNormalBias:{},shadowRadius:{},shadowMapSize:{}}},directionalShadowMatrix:{value:[]},spotLights:{value:[],properties:{color:{},position:{},direction:{},distance:{},coneCos:{},penumbraCos:{},decay:{}}},spotLightShadows:{value:[],properties:{shadowIntensity:1,shadowBias:{},shadowNormalBias:{},shadowRadius:{},shadowMapSize:{}}},spotLightMap:{value:[]},spotLightMatrix:{value:[]},pointLights:{value:[],properties:{color:{},position:{},decay:{},distance:{}}},pointLightShadows:{value:[],properties:{shadowIntensity:1,shadowBias:{},shadowNormalBias:{},shadowRadius:{},shadowMapSize:{},shadowCameraNear:{},shadowCameraFar:{}}},pointShadowMatrix:{value:[]},hemisphereLights:{value:[],properties:{direction:{},skyColor:{},groundColor:{}}},rectAreaLights:{value:[],properties:{color:{},position:{},width:{},height:{}}},ltc_1:{value:null},ltc_2:{value:null},probesSH:{value:[]},probesMin:{value:[]},probesMax:{value:[]},probesResolution:{value:[]}},points:{diffuse:{value:new gt(16777215)},opacity:{value:1},size:{value:1},scale:{value:1},map:{value:null},alphaMap:{value:null},alphaMapTransform:{value:new tt},alphaTest:{value:0},uvTransform:{value:new tt}},sprite:{diffuse:{value:new gt(16777215)},opacity:{value:1},center:{value:new ze(.5,.5)},rotation:{value:0},map:{value:null},mapTransform:{value:new tt},alphaMap:{value:null},alphaMapTransform:{value:new tt},alphaTest:{value:0}}},Zi={basic:{uniforms:Nn([De.common,De.specularmap,De.envmap,De.aomap,De.lightmap,De.fog]),vertexShader:ht.meshbasic_vert,fragmentShader:ht.meshbasic_frag},lambert:{uniforms:Nn([De.common,De.specularmap,De.envmap,De.aomap,De.lightmap,De.emissivemap,De.bumpmap,De.normalmap,De.displacementmap,De.fog,De.lights,{emissive:{value:new gt(0)},envMapIntensity:{value:1}}]),vertexShader:ht.meshlambert_vert,fragmentShader:ht.meshlambert_frag},phong:{uniforms:Nn([De.common,De.specularmap,De.envmap,De.aomap,De.lightmap,De.emissivemap,De.bumpmap,De.normalmap,De.displacementmap,De.fog,De.lights,{emissive:{value:new gt(0)},specular:{value:new gt(1118481)},shininess:{value:30},envMapIntensity:{value:1}}]),vertexShader:ht.meshphong_vert,fragmentShader:ht.meshphong_frag},standard:{uniforms:Nn([De.common,De.envmap,De.aomap,De.lightmap,De.emissivemap,De.bumpmap,De.normalmap,De.displacementmap,De.roughnessmap,De.metalnessmap,De.fog,De.lights,{emissive:{value:new gt(0)},roughness:{value:1},metalness:{value:0},envMapIntensity:{value:1}}]),vertexShader:ht.meshphysical_vert,fragmentShader:ht.meshphysical_frag},toon:{uniforms:Nn([De.common,De.aomap,De.lightmap,De.emissivemap,De.bumpmap,De.normalmap,De.displacementmap,De.gradientmap,De.fog,De.lights,{emissive:{value:new gt(0)}}]),vertexShader:ht.meshtoon_vert,fragmentShader:ht.meshtoon_frag},matcap:{uniforms:Nn([De.common,De.bumpmap,De.normalmap,De.displacementmap,De.fog,{matcap:{value:null}}]),vertexShader:ht.meshmatcap_vert,fragmentShader:ht.meshmatcap_frag},points:{uniforms:Nn([De.points,De.fog]),vertexShader:ht.points_vert,fragmentShader:ht.points_frag},dashed:{uniforms:Nn([De.common,De.fog,{scale:{value:1},dashSize:{value:1},totalSize:{value:2}}]),vertexShader:ht.linedashed_vert,fragmentShader:ht.linedashed_frag},depth:{uniforms:Nn([De.common,De.displacementmap]),vertexShader:ht.depth_vert,fragmentShader:ht.depth_frag},normal:{uniforms:Nn([De.common,De.bumpmap,De.normalmap,De.displacementmap,{opacity:{value:1}}]),vertexShader:ht.meshnormal_vert,fragmentShader:ht.meshnormal_frag},sprite:{uniforms:Nn([De.sprite,De.fog]),vertexShader:ht.sprite_vert,fragmentShader:ht.sprite_frag},background:{uniforms:{uvTransform:{value:new tt},t2D:{value:null},backgroundIntensity:{value:1}},vertexShader:ht.background_vert,fragmentShader:ht.background_frag},backgroundCube:{uniforms:{envMap:{value:null},backgroundBlurriness:{value:0},backgroundIntensity:{value:1},backgroundRotation:{value:new tt}},vertexShader:ht.backgroundCube_vert,fragmentShader:ht.backgroundCube_frag},cube:{uniforms:{tCube:{value:null},tFlip:{value:-1},opacity:{value:1}},vertexShader:ht.cube_vert,fragmentShader:ht.cube_frag},equirect:{uniforms:{tEquirect:{value:null}},vertexShader:ht.equirect_vert,fragmentShader:ht.equirect_frag},distance:{uniforms:Nn([De.common,De.displacementmap,{referencePosition:{value:new F},nearDistance:{value:1},farDistance:{value:1e3}}]),vertexShader:ht.distance_vert,fragmentShader:ht.distance_frag},shadow:{uniforms:Nn([De.lights,De.fog,{color:{value:new gt(0)},opacity:{value:1}}]),vertexShader:ht.shadow_vert,fragmentShader:ht.shadow_frag}};Zi.physical={uniforms:Nn([Zi.standard.uniforms,{clearcoat:{value:0},clearcoatMap:{value:null},clearcoatMapTransform:{value:new tt},clearcoatNormalMap:{value:null},clearcoatNormalMapTransform:{value:new tt},clearcoatNormalScale:{value:new ze(1,1)},clearcoatRoughness:{value:0},clearcoatRoughnessMap:{value:null},clearcoatRoughnessMapTransform:{value:new tt},diffuseRoughness:{value:0},diffuseRoughnessMap:{value:null},diffuseRoughnessMapTransform:{value:new tt},dispersion:{value:0},retroreflectivity:{value:0},iridescence:{value:0},iridescenceMap:{value:null},iridescenceMapTransform:{value:new tt},iridescenceIOR:{value:1.3},iridescenceThicknessMinimum:{value:100},iridescenceThicknessMaximum:{value:400},iridescenceThicknessMap:{value:null},iridescenceThicknessMapTransform:{value:new tt},sheen:{value:0},sheenColor:{value:new gt(0)},sheenColorMap:{value:null},sheenColorMapTransform:{value:new tt},sheenRoughness:{value:1},sheenRoughnessMap:{value:null},sheenRoughnessMapTransform:{value:new tt},transmission:{value:0},transmissionMap:{value:null},transmissionMapTransform:{value:new tt},transmissionSamplerSize:{value:new ze},transmissionSamplerMap:{value:null},thickness:{value:0},thicknessMap:{value:null},thicknessMapTransform:{value:new tt},attenuationDistance:{value:0},attenuationColor:{value:new gt(0)},specularColor:{value:new gt(1,1,1)},specularColorMap:{value:null},specularColorMapTransform:{value:new tt},specularIntensity:{value:1},specularIntensityMap:{value:null},specularIntensityMapTransform:{value:new tt},anisotropyVector:{value:new ze},anisotropyMap:{value:null},anisotropyMapTransform:{value:new tt}}]),vertexShader:ht.meshphysical_vert,fragmentShader:ht.meshphysical_frag};var fh={r:0,b:0,g:0},FS=new Ut,Jg=new tt;Jg.set(-1,0,0,0,1,0,0,0,1);function BS(i,e,t,n,s,r){let o=new gt(0),a=s===!0?0:1,l,c,h=null,u=0,d=null;function f(v){let A=v.isScene===!0?v.background:null;if(A&&A.isTexture){let S=v.backgroundBlurriness>0;A=e.get(A,S)}return A}function p(v){let A=!1,S=f(v);S===null?m(o,a):S&&S.isColor&&(m(S,1),A=!0);let C=i.xr.getEnvironmentBlendMode();C==="additive"?t.buffers.color.setClear(0,0,0,1,r):C==="alpha-blend"&&t.buffers.color.setClear(0,0,0,0,r),(i.autoClear||A)&&(t.buffers.depth.setTest(!0),t.buffers.depth.setMask(!0),t.buffers.color.setMask(!0),i.clear(i.autoClearColor,i.autoClearDepth,i.autoClearStencil))}function y(v,A){let S=f(A);S&&S.isCubeTexture?(c===void 0&&(c=new dn(new ho(1,1,1),new xi({name:"BackgroundCubeMaterial",uniforms:vr(Zi.backgroundCube.uniforms),vertexShader:Zi.backgroundCube.vertexShader,fragmentShader:Zi.backgroundCube.fragmentShader,side:Wn,depthTest:!1,depthWrite:!1,fog:!1,allowOverride:!1})),c.geometry.deleteAttribute("normal"),c.geometry.deleteAttribute("uv"),c.onBeforeRender=function(C,T,x){this.matrixWorld.copyPosition(x.matrixWorld)},Object.defineProperty(c.material,"envMap",{get:function(){return this.uniforms.envMap.value}}),n.update(c)),c.material.uniforms.envMap.value=S,c.material.uniforms.backgroundBlurriness.value=A.backgroundBlurriness,c.material.uniforms.backgroundIntensity.value=A.backgroundIntensity,c.material.uniforms.backgroundRotation.value.setFromMatrix4(FS.makeRotationFromEuler(A.backgroundRotation)).transpose(),S.isRenderTargetTexture===!1&&c.material.uniforms.backgroundRotation.value.premultiply(Jg),c.material.toneMapped=pt.getTransfer(S.colorSpace)!==Tt,(h!==S||u!==S.version||d!==i.toneMapping)&&(c.material.needsUpdate=!0,h=S,u=S.version,d=i.toneMapping),c.layers.enableAll(),v.unshift(c,c.geometry,c.material,0,0,null)):S&&S.isTexture&&(l===void 0&&(l=new dn(new xa(2,2),new xi({name:"BackgroundMaterial",uniforms:vr(Zi.background.uniforms),vertexShader:Zi.background.vertexShader,fragmentShader:Zi.background.fragmentShader,side:qi,depthTest:!1,depthWrite:!1,fog:!1,allowOverride:!1})),l.geometry.deleteAttribute("normal"),Object.defineProperty(l.material,"map",{get:function(){return this.uniforms.t2D.value}}),n.update(l)),l.material.uniforms.t2D.value=S,l.material.uniforms.backgroundIntensity.value=A.backgroundIntensity,l.material.toneMapped=pt.getTransfer(S.colorSpace)!==Tt,S.matrixAutoUpdate===!0&&S.updateMatrix(),l.material.uniforms.uvTransform.value.copy(S.matrix),(h!==S||u!==S.version||d!==i.toneMapping)&&(l.material.needsUpdate=!0,h=S,u=S.version,d=i.toneMapping),l.layers.enableAll(),v.unshift(l,l.geometry,l.material,0,0,null))}function m(v,A){v.getRGB(fh,Cd(i)),t.buffers.color.setClear(fh.r,fh.g,fh.b,A,r)}function g(){c!==void 0&&(c.geometry.dispose(),c.material.dispose(),c=void 0),l!==void 0&&(l.geometry.dispose(),l.material.dispose(),l=void 0)}return{getClearColor:function(){return o},setClearColor:function(v,A=1){o.set(v),a=A,m(o,a)},getClearAlpha:function(){return a},setClearAlpha:function(v){a=v,m(o,a)},render:p,addToRenderList:y,dispose:g}}function kS(i,e){let t=i.getParameter(i.MAX_VERTEX_ATTRIBS),n={},s=d(null),r=s,o=!1;function a(D,G,V,I,W){let $=!1,z=u(D,I,V,G);r!==z&&(r=z,c(r.object)),$=f(D,I,V,W),$&&p(D,I,V,W),W!==null&&e.update(W,i.ELEMENT_ARRAY_BUFFER),($||o)&&(o=!1,S(D,G,V,I),W!==null&&i.bindBuffer(i.ELEMENT_ARRAY_BUFFER,e.get(W).buffer))}function l(){return i.createVertexArray()}function c(D){return i.bindVertexArray(D)}function h(D){return i.deleteVertexArray(D)}function u(D,G,V,I){let W=I.wireframe===!0,$=n[G.id];$===void 0&&($={},n[G.id]=$);let z=D.isInstancedMesh===!0?D.id:0,ce=$[z];ce===void 0&&(ce={},$[z]=ce);let K=ce[V.id];K===void 0&&(K={},ce[V.id]=K);let ee=K[W];return ee===void 0&&(ee=d(l()),K[W]=ee),ee}function d(D){let G=[],V=[],I=[];for(let W=0;W<t;W++)G[W]=0,V[W]=0,I[W]=0;return{geometry:null,program:null,wireframe:!1,newAttributes:G,enabledAttributes:V,attributeDivisors:I,object:D,attributes:{},index:null}}function f(D,G,V,I){let W=r.attributes,$=G.attributes,z=0,ce=V.getAttributes();for(let K in ce)if(ce[K].location>=0){let re=W[K],fe=$[K];if(fe===void 0&&(K==="instanceMatrix"&&D.instanceMatrix&&(fe=D.instanceMatrix),K==="instanceColor"&&D.instanceColor&&(fe=D.instanceColor)),re===void 0||re.attribute!==fe||fe&&re.data!==fe.data)return!0;z++}return r.attributesNum!==z||r.index!==I}function p(D,G,V,I){let W={},$=G.attributes,z=0,ce=V.getAttributes();for(let K in ce)if(ce[K].location>=0){let re=$[K];re===void 0&&(K==="instanceMatrix"&&D.instanceMatrix&&(re=D.instanceMatrix),K==="instanceColor"&&D.instanceColor&&(re=D.instanceColor));let fe={};fe.attribute=re,re&&re.data&&(fe.data=re.data),W[K]=fe,z++}r.attributes=W,r.attributesNum=z,r.index=I}function y(){let D=r.newAttributes;for(let G=0,V=D.length;G<V;G++)D[G]=0}function m(D){g(D,0)}function g(D,G){let V=r.newAttributes,I=r.enabledAttributes,W=r.attributeDivisors;V[D]=1,I[D]===0&&(i.enableVertexAttribArray(D),I[D]=1),W[D]!==G&&(i.vertexAttribDivisor(D,G),W[D]=G)}function v(){let D=r.newAttributes,G=r.enabledAttributes;for(let V=0,I=G.length;V<I;V++)G[V]!==D[V]&&(i.disableVertexAttribArray(V),G[V]=0)}function A(D,G,V,I,W,$,z){z===!0?i.vertexAttribIPointer(D,G,V,W,$):i.vertexAttribPointer(D,G,V,I,W,$)}function S(D,G,V,I){y();let W=I.attributes,$=V.getAttributes(),z=G.defaultAttributeValues;for(let ce in $){let K=$[ce];if(K.location>=0){let ee=W[ce];if(ee===void 0&&(ce==="instanceMatrix"&&D.instanceMatrix&&(ee=D.instanceMatrix),ce==="instanceColor"&&D.instanceColor&&(ee=D.instanceColor)),ee!==void 0){let re=ee.normalized,fe=ee.itemSize,de=e.get(ee);if(de===void 0)continue;let te=de.buffer,ge=de.type,ve=de.bytesPerElement,Re=ge===i.INT||ge===i.UNSIGNED_INT||ee.gpuType===vo;if(ee.isInterleavedBufferAttribute){let Me=ee.data,Xe=Me.isInterleavedBuffer===!0?Me.stride:Me.itemSize,st=ee.offset;if(Me.isInstancedInterleavedBuffer||Me.isInstancedBufferAttribute){for(let Ge=0;Ge<K.locationSize;Ge++)g(K.location+Ge,Me.meshPerAttribute);D.isInstancedMesh!==!0&&I._maxInstanceCount===void 0&&(I._maxInstanceCount=Me.meshPerAttribute*Me.count)}else for(let Ge=0;Ge<K.locationSize;Ge++)m(K.location+Ge);i.bindBuffer(i.ARRAY_BUFFER,te);for(let Ge=0;Ge<K.locationSize;Ge++)A(K.location+Ge,fe/K.locationSize,ge,re,Xe*ve,(st+fe/K.locationSize*Ge)*ve,Re)}else{if(ee.isInstancedBufferAttribute){for(let Me=0;Me<K.locationSize;Me++)g(K.location+Me,ee.meshPerAttribute);D.isInstancedMesh!==!0&&I._maxInstanceCount===void 0&&(I._maxInstanceCount=ee.meshPerAttribute*ee.count)}else for(let Me=0;Me<K.locationSize;Me++)m(K.location+Me);i.bindBuffer(i.ARRAY_BUFFER,te);for(let Me=0;Me<K.locationSize;Me++)A(K.location+Me,fe/K.locationSize,ge,re,fe*ve,fe/K.locationSize*Me*ve,Re)}}else if(z!==void 0){let re=z[ce];if(re!==void 0)switch(re.length){case 2:i.vertexAttrib2fv(K.location,re);break;case 3:i.vertexAttrib3fv(K.location,re);break;case 4:i.vertexAttrib4fv(K.location,re);break;default:i.vertexAttrib1fv(K.location,re)}}}}v()}function C(){B();for(let D in n){let G=n[D];for(let V in G){let I=G[V];for(let W in I){let $=I[W];for(let z in $)h($[z].object),delete $[z];delete I[W]}}delete n[D]}}function T(D){if(n[D.id]===void 0)return;let G=n[D.id];for(let V in G){let I=G[V];for(let W in I){let $=I[W];for(let z in $)h($[z].object),delete $[z];delete I[W]}}delete n[D.id]}function x(D){for(let G in n){let V=n[G];for(let I in V){let W=V[I];if(W[D.id]===void 0)continue;let $=W[D.id];for(let z in $)h($[z].object),delete $[z];delete W[D.id]}}}function E(D){for(let G in n){let V=n[G],I=D.isInstancedMesh===!0?D.id:0,W=V[I];if(W!==void 0){for(let $ in W){let z=W[$];for(let ce in z)h(z[ce].object),delete z[ce];delete W[$]}delete V[I],Object.keys(V).length===0&&delete n[G]}}}function B(){N(),o=!0,r!==s&&(r=s,c(r.object))}function N(){s.geometry=null,s.program=null,s.wireframe=!1}return{setup:a,reset:B,resetDefaultState:N,dispose:C,releaseStatesOfGeometry:T,releaseStatesOfObject:E,releaseStatesOfProgram:x,initAttributes:y,enableAttribute:m,disableUnusedAttributes:v}}function zS(i,e,t){let n;function s(l){n=l}function r(l,c){i.drawArrays(n,l,c),t.update(c,n,1)}function o(l,c,h){h!==0&&(i.drawArraysInstanced(n,l,c,h),t.update(c,n,h))}function a(l,c,h){if(h===0)return;e.get("WEBGL_multi_draw").multiDrawArraysWEBGL(n,l,0,c,0,h);let d=0;for(let f=0;f<h;f++)d+=c[f];t.update(d,n,1)}this.setMode=s,this.render=r,this.renderInstances=o,this.renderMultiDraw=a}function HS(i,e,t,n){let s;function r(){if(s!==void 0)return s;if(e.has("EXT_texture_filter_anisotropic")===!0){let x=e.get("EXT_texture_filter_anisotropic");s=i.getParameter(x.MAX_TEXTURE_MAX_ANISOTROPY_EXT)}else s=0;return s}function o(x){return!(x!==Di&&n.convert(x)!==i.getParameter(i.IMPLEMENTATION_COLOR_READ_FORMAT))}function a(x){let E=x===Li&&(e.has("EXT_color_buffer_half_float")||e.has("EXT_color_buffer_float"));return!(x!==Xn&&x!==Ii&&!E&&n.convert(x)!==i.getParameter(i.IMPLEMENTATION_COLOR_READ_TYPE))}function l(x){if(x==="highp"){if(i.getShaderPrecisionFormat(i.VERTEX_SHADER,i.HIGH_FLOAT).precision>0&&i.getShaderPrecisionFormat(i.FRAGMENT_SHADER,i.HIGH_FLOAT).precision>0)return"highp";x="mediump"}return x==="mediump"&&i.getShaderPrecisionFormat(i.VERTEX_SHADER,i.MEDIUM_FLOAT).precision>0&&i.getShaderPrecisionFormat(i.FRAGMENT_SHADER,i.MEDIUM_FLOAT).precision>0?"mediump":"lowp"}let c=t.precision!==void 0?t.precision:"highp",h=l(c);h!==c&&($e("WebGLRenderer:",c,"not supported, using",h,"instead."),c=h);let u=t.reversedDepthBuffer===!0&&e.has("EXT_clip_control"),d=t.logarithmicDepthBuffer===!0&&u===!1;t.reversedDepthBuffer===!0&&u===!1&&$e("WebGLRenderer: Unable to use reversed depth buffer due to missing EXT_clip_control extension. Fallback to default depth buffer."),t.logarithmicDepthBuffer===!0&&u===!0&&$e("WebGLRenderer: Logarithmic depth buffer is ignored when reversed depth buffer is enabled.");let f=i.getParameter(i.MAX_TEXTURE_IMAGE_UNITS),p=i.getParameter(i.MAX_VERTEX_TEXTURE_IMAGE_UNITS),y=i.getParameter(i.MAX_TEXTURE_SIZE),m=i.getParameter(i.MAX_CUBE_MAP_TEXTURE_SIZE),g=i.getParameter(i.MAX_VERTEX_ATTRIBS),v=i.getParameter(i.MAX_VERTEX_UNIFORM_VECTORS),A=i.getParameter(i.MAX_VARYING_VECTORS),S=i.getParameter(i.MAX_FRAGMENT_UNIFORM_VECTORS),C=i.getParameter(i.MAX_SAMPLES),T=i.getParameter(i.SAMPLES);return{isWebGL2:!0,getMaxAnisotropy:r,getMaxPrecision:l,textureFormatReadable:o,textureTypeReadable:a,precision:c,logarithmicDepthBuffer:d,reversedDepthBuffer:u,maxTextures:f,maxVertexTextures:p,maxTextureSize:y,maxCubemapSize:m,maxAttributes:g,maxVertexUniforms:v,maxVaryings:A,maxFragmentUniforms:S,maxSamples:C,samples:T}}function VS(i){let e=this,t=null,n=0,s=!1,r=!1,o=new oi,a=new tt,l={value:null,needsUpdate:!1};this.uniform=l,this.numPlanes=0,this.numIntersection=0,this.init=function(u,d){let f=u.length!==0||d||n!==0||s;return s=d,n=u.length,f},this.beginShadows=function(){r=!0,h(null)},this.endShadows=function(){r=!1},this.setGlobalState=function(u,d){t=h(u,d,0)},this.setState=function(u,d,f){let p=u.clippingPlanes,y=u.clipIntersection,m=u.clipShadows,g=i.get(u);if(!s||p===null||p.length===0||r&&!m)r?h(null):c();else{let v=r?0:n,A=v*4,S=g.clippingState||null;l.value=S,S=h(p,d,A,f);for(let C=0;C!==A;++C)S[C]=t[C];g.clippingState=S,this.numIntersection=y?this.numPlanes:0,this.numPlanes+=v}};function c(){l.value!==t&&(l.value=t,l.needsUpdate=n>0),e.numPlanes=n,e.numIntersection=0}function h(u,d,f,p){let y=u!==null?u.length:0,m=null;if(y!==0){if(m=l.value,p!==!0||m===null){let g=f+y*4,v=d.matrixWorldInverse;a.getNormalMatrix(v),(m===null||m.length<g)&&(m=new Float32Array(g));for(let A=0,S=f;A!==y;++A,S+=4)o.copy(u[A]).applyMatrix4(v,a),o.normal.toArray(m,S),m[S+3]=o.constant}l.value=m,l.needsUpdate=!0}return e.numPlanes=y,e.numIntersection=0,m}}var Ua=class extends Pn{constructor(e=1,t={}){super(e,e,t),this.isWebGLCubeRenderTarget=!0;let n={width:e,height:e,depth:1},s=[n,n,n,n,n,n];this.texture=new fa(s),this._setTextureOptions(t),this.texture.isRenderTargetTexture=!0}fromEquirectangularTexture(e,t){this.texture.type=t.type,this.texture.colorSpace=t.colorSpace,this.texture.generateMipmaps=t.generateMipmaps,this.texture.minFilter=t.minFilter,this.texture.magFilter=t.magFilter;let n={uniforms:{tEquirect:{value:null}},vertexShader:`

				varying vec3 vWorldDirection;

				vec3 transformDirection( in vec3 dir, in mat4 matrix ) {

					return normalize( ( matrix * vec4( dir, 0.0 ) ).xyz );

				}

				void main() {

					vWorldDirection = transformDirection( position, modelMatrix );

					#include <begin_vertex>
					#include <project_vertex>

				}
			`,fragmentShader:`

				uniform sampler2D tEquirect;

				varying vec3 vWorldDirection;

				#include <common>

				void main() {

					vec3 direction = normalize( vWorldDirection );

					vec2 sampleUV = equirectUv( direction );

					gl_FragColor = texture2D( tEquirect, sampleUV );

				}
			`},s=new ho(5,5,5),r=new xi({name:"CubemapFromEquirect",uniforms:vr(n.uniforms),vertexShader:n.vertexShader,fragmentShader:n.fragmentShader,side:Wn,blending:mr});r.uniforms.tEquirect.value=t;let o=new dn(s,r),a=t.minFilter;return t.minFilter===ps&&(t.minFilter=Rn),new po(1,10,this).update(e,o),t.minFilter=a,o.geometry.dispose(),o.material.dispose(),this}clear(e,t=!0,n=!0,s=!0){let r=e.getRenderTarget();for(let o=0;o<6;o++)e.setRenderTarget(this,o),e.clear(t,n,s);e.setRenderTarget(r)}},Cg=256,GS=3,WS=20,jg=256,Qg=16,XS=3,qS=new F,YS=new gt,mh=class i{constructor(e){this._renderer=e,this._cubeSize=0,this._sourceTarget=null,this._cubeCamera=new po(1,10,null),this._boxMesh=new dn(new ho(5,5,5),null),this._cubemapMaterial=null,this._equirectMaterial=null,this._blurMaterial=null,this._ggxMaterial=null,this._integrationMaterial=null}fromScene(e,t=0,n=.1,s=100,r={}){let{size:o=256,position:a=qS}=r,l=this._renderer;this._setSize(o);let c=this._allocateTarget(),h=this._getSourceTarget(!0);t>0&&(h.texture.mipmapsAutoUpdate=!1);let u=l.autoClear,d=l.autoClearColor,f=l.autoClearDepth,p=l.autoClearStencil,y=e.background;l.autoClear=!0,l.autoClearColor=!0,l.autoClearDepth=!0,l.autoClearStencil=!0,y===null&&(e.background=l.getClearColor(YS));let m=new po(n,s,h);return m.position.copy(a),m.update(l,e),l.autoClear=u,l.autoClearColor=d,l.autoClearDepth=f,l.autoClearStencil=p,e.background=y,t>0&&(h.texture.mipmapsAutoUpdate=!0,this._blur(c,t)),this._applyPMREM(c),c}fromEquirectangular(e,t=null){return this._fromTexture(e,t)}fromCubemap(e,t=null){return this._fromTexture(e,t)}compileCubemapShader(){this._cubemapMaterial===null&&(this._cubemapMaterial=Lg(),this._compileMaterial(this._cubemapMaterial))}compileEquirectangularShader(){this._equirectMaterial===null&&(this._equirectMaterial=Ig(),this._compileMaterial(this._equirectMaterial))}dispose(){this._sourceTarget!==null&&this._sourceTarget.dispose(),this._cubemapMaterial!==null&&this._cubemapMaterial.dispose(),this._equirectMaterial!==null&&this._equirectMaterial.dispose(),this._blurMaterial!==null&&this._blurMaterial.dispose(),this._ggxMaterial!==null&&this._ggxMaterial.dispose(),this._integrationMaterial!==null&&this._integrationMaterial.dispose(),this._boxMesh.geometry.dispose()}static lodToRoughness(e,t){return t>0?1-Math.sqrt(1-e/t):0}_setSize(e){this._cubeSize=Math.max(Cg,Ed(e))}_fromTexture(e,t){e.mapping===_r||e.mapping===xo?this._setSize(e.image.length===0?Cg:e.image[0].width||e.image[0].image.width):this._setSize(e.image.width/4);let n=t||this._allocateTarget();return this._textureToCubemap(e),this._applyPMREM(n),n}_allocateTarget(){let e=this._cubeSize,t=Pg(e,!1,!1),n=Math.log2(e)-GS;for(let s=0;s<=n;s++)t.texture.mipmaps.push({width:e>>s,height:e>>s});return t.texture.name="PMREM",t.texture.isPMREMTexture=!0,t}_getSourceTarget(e=!1){let t=this._cubeSize,n=this._sourceTarget;return(n===null||n.width!==t||e&&n.depthBuffer===!1)&&(n!==null&&n.dispose(),this._sourceTarget=Pg(t,!0,e)),this._sourceTarget}_compileMaterial(e){this._boxMesh.material=e,this._renderer.compile(this._boxMesh,this._cubeCamera.children[0])}_renderCube(e,t,n){let s=this._boxMesh,r=this._cubeCamera;s.material=n,r.renderTarget=e,r.activeMipmapLevel=t;let o=e.width>>t;e.viewport.set(0,0,o,o),r.update(this._renderer,s),e.viewport.set(0,0,e.width,e.height)}_textureToCubemap(e){let t;e.mapping===_r||e.mapping===xo?(this._cubemapMaterial===null&&(this._cubemapMaterial=Lg()),t=this._cubemapMaterial,t.uniforms.flipEnvMap.value=e.isRenderTargetTexture===!1?-1:1):(this._equirectMaterial===null&&(this._equirectMaterial=Ig()),t=this._equirectMaterial),t.uniforms.envMap.value=e,this._renderCube(this._getSourceTarget(),0,t)}_applyPMREM(e){this._ggxMaterial===null&&(this._ggxMaterial=$S(),this._integrationMaterial=ZS());let t=this._cubeSize,n=e.texture.mipmaps.length-1,s=this._ggxMaterial.uniforms;s.envMap.value=this._sourceTarget.texture;let r=this._integrationMaterial.uniforms;r.envMap.value=this._sourceTarget.texture,r.sourceLod.value=Math.log2(t/Qg);for(let o=0;o<=n;o++){let a=i.lodToRoughness(o,n);if(o>n-XS)r.roughness.value=a,this._renderCube(e,o,this._integrationMaterial);else{let l=a>0?Math.log2(t)+.5*Math.log2(6/(jg*Math.pow(a,4)))+.5:0;s.roughness.value=a,s.lodBias.value=l,this._renderCube(e,o,this._ggxMaterial)}}}_blur(e,t){this._blurMaterial===null&&(this._blurMaterial=KS());let n=this._blurMaterial,s=n.uniforms,r=this._sourceTarget;s.sigma.value=Math.min(t,Math.PI)/Math.SQRT2,s.envMap.value=r.texture,this._renderCube(e,0,n),s.envMap.value=e.texture,this._renderCube(r,0,n)}};function Pg(i,e,t){return new Ua(i,{minFilter:ps,generateMipmaps:e,type:Li,colorSpace:lr,depthBuffer:t})}function Oa(i,e,t){return new xi({name:i,uniforms:e,vertexShader:ht.cube_vert,fragmentShader:t,side:Wn,blending:mr,depthTest:!1,depthWrite:!1})}function $S(){return Oa("PMREMGGXConvolution",{envMap:{value:null},roughness:{value:0},lodBias:{value:0}},`

		#define GGX_SAMPLES ${jg}u

		varying vec3 vWorldDirection;

		uniform samplerCube envMap;
		uniform float roughness;
		uniform float lodBias;

		#include <common>

		// Van der Corput radical inverse
		float radicalInverse_VdC( uint bits ) {

			bits = ( bits << 16u ) | ( bits >> 16u );
			bits = ( ( bits & 0x55555555u ) << 1u ) | ( ( bits & 0xAAAAAAAAu ) >> 1u );
			bits = ( ( bits & 0x33333333u ) << 2u ) | ( ( bits & 0xCCCCCCCCu ) >> 2u );
			bits = ( ( bits & 0x0F0F0F0Fu ) << 4u ) | ( ( bits & 0xF0F0F0F0u ) >> 4u );
			bits = ( ( bits & 0x00FF00FFu ) << 8u ) | ( ( bits & 0xFF00FF00u ) >> 8u );
			return float( bits ) * 2.3283064365386963e-10; // / 0x100000000

		}

		// Hammersley sequence
		vec2 hammersley( uint i, uint N ) {

			return vec2( float( i ) / float( N ), radicalInverse_VdC( i ) );

		}

		void main() {

			vec3 N = normalize( vWorldDirection );

			// For very low roughness, just sample the environment directly
			if ( roughness < 0.001 ) {

				gl_FragColor = vec4( textureLod( envMap, N, 0.0 ).rgb, 1.0 );
				return;

			}

			float alpha = roughness * roughness;
			float alpha2 = alpha * alpha;

			// Tangent space basis for VNDF sampling
			vec3 up = abs( N.z ) < 0.999 ? vec3( 0.0, 0.0, 1.0 ) : vec3( 1.0, 0.0, 0.0 );
			vec3 tangent = normalize( cross( up, N ) );
			vec3 bitangent = cross( N, tangent );

			vec3 prefilteredColor = vec3( 0.0 );
			float totalWeight = 0.0;

			for ( uint i = 0u; i < GGX_SAMPLES; i ++ ) {

				vec2 Xi = hammersley( i, GGX_SAMPLES );

				// With V = N, sample the reflected direction directly.
				float invQ = 1.0 / ( 1.0 - Xi.x + alpha2 * Xi.x );
				float NdotL = ( 1.0 - Xi.x - alpha2 * Xi.x ) * invQ;

				if ( NdotL > 0.0 ) {

					float phi = 2.0 * PI * Xi.y;
					float sinTheta = 2.0 * alpha * sqrt( Xi.x * ( 1.0 - Xi.x ) ) * invQ;
					vec3 L = N * NdotL + ( tangent * cos( phi ) + bitangent * sin( phi ) ) * sinTheta;

					// Match the source mip to the sample's solid angle. The terms
					// independent of the sample are precomputed in lodBias.
					float d = alpha2 * invQ;
					float lod = max( log2( d ) + lodBias, 0.0 );

					// Weight by NdotL for the split-sum approximation
					prefilteredColor += textureLod( envMap, L, lod ).rgb * NdotL;
					totalWeight += NdotL;

				}

			}

			gl_FragColor = vec4( prefilteredColor / totalWeight, 1.0 );

		}
	`)}function ZS(){return Oa("PMREMGGXIntegration",{envMap:{value:null},roughness:{value:0},sourceLod:{value:0},sourceSize:{value:Qg}},`

		varying vec3 vWorldDirection;

		uniform samplerCube envMap;
		uniform float roughness;
		uniform float sourceLod;
		uniform int sourceSize;

		void main() {

			vec3 N = normalize( vWorldDirection );

			float alpha = roughness * roughness;
			float alpha2 = alpha * alpha;

			float texelSize = 2.0 / float( sourceSize );

			vec3 prefilteredColor = vec3( 0.0 );
			float totalWeight = 0.0;

			// Pair opposite texels: only the one in N's hemisphere contributes.
			for ( int face = 0; face < 3; face ++ ) {

				for ( int y = 0; y < sourceSize; y ++ ) {

					for ( int x = 0; x < sourceSize; x ++ ) {

						vec2 uv = ( vec2( x, y ) + 0.5 ) * texelSize - 1.0;
						vec3 texelDirection = face == 0 ? vec3( 1.0, uv ) : ( face == 1 ? vec3( uv.x, 1.0, uv.y ) : vec3( uv, 1.0 ) );

						float invDistance = inversesqrt( 1.0 + dot( uv, uv ) );
						float NdotL = dot( N, texelDirection );
						texelDirection *= NdotL < 0.0 ? - 1.0 : 1.0;
						NdotL = abs( NdotL ) * invDistance;

						// With V = N, NdotH squared is ( 1 + NdotL ) / 2. Common factors
						// in the GGX distribution and texel solid angle cancel when normalized.
						float d = 1.0 + alpha2 + ( alpha2 - 1.0 ) * NdotL;
						float weight = NdotL * invDistance * invDistance * invDistance / ( d * d );

						prefilteredColor += textureLod( envMap, texelDirection, sourceLod ).rgb * weight;
						totalWeight += weight;

					}

				}

			}

			gl_FragColor = vec4( prefilteredColor / totalWeight, 1.0 );

		}
	`)}function KS(){return Oa("PMREMSphericalGaussianBlur",{envMap:{value:null},sigma:{value:0}},`

		#define SAMPLES ${WS}
		#define GOLDEN_ANGLE 2.39996322973

		varying vec3 vWorldDirection;

		uniform samplerCube envMap;
		uniform float sigma;

		#include <common>

		void main() {

			vec3 outputDirection = normalize( vWorldDirection );

			vec3 up = abs( outputDirection.z ) < 0.999 ? vec3( 0.0, 0.0, 1.0 ) : vec3( 1.0, 0.0, 0.0 );
			vec3 tangent = normalize( cross( up, outputDirection ) );
			vec3 bitangent = cross( outputDirection, tangent );

			// Truncate the kernel at three standard deviations or at the antipode.
			float thetaMax = min( 3.0 * sigma, PI );
			float truncation = 1.0 - exp( - 0.5 * thetaMax * thetaMax / ( sigma * sigma ) );

			vec3 accumColor = vec3( 0.0 );
			float accumWeight = 0.0;

			for ( int i = 0; i < SAMPLES; i ++ ) {

				// Stratified inverse-CDF sampling of the Gaussian, placed on a golden-angle spiral.
				float stratum = ( float( i ) + 0.5 ) / float( SAMPLES );
				float theta = sigma * sqrt( - 2.0 * log( 1.0 - stratum * truncation ) );
				float phi = float( i ) * GOLDEN_ANGLE;

				vec3 offset = cos( phi ) * tangent + sin( phi ) * bitangent;
				vec3 sampleDirection = cos( theta ) * outputDirection + sin( theta ) * offset;

				// Correct the planar sample density to solid angle.
				float weight = sin( theta ) / theta;

				accumColor += weight * textureLod( envMap, sampleDirection, 0.0 ).rgb;
				accumWeight += weight;

			}

			gl_FragColor = vec4( accumColor / accumWeight, 1.0 );

		}
	`)}function Ig(){return Oa("PMREMEquirectangularToCubemap",{envMap:{value:null}},`

		varying vec3 vWorldDirection;

		uniform sampler2D envMap;

		#include <common>

		void main() {

			// Average four subpixel samples to preserve small, bright features.
			vec3 direction = normalize( vWorldDirection );
			vec3 dx = dFdx( direction ) * 0.25;
			vec3 dy = dFdy( direction ) * 0.25;

			vec3 color = textureLod( envMap, equirectUv( normalize( direction - dx - dy ) ), 0.0 ).rgb;
			color += textureLod( envMap, equirectUv( normalize( direction + dx - dy ) ), 0.0 ).rgb;
			color += textureLod( envMap, equirectUv( normalize( direction - dx + dy ) ), 0.0 ).rgb;
			color += textureLod( envMap, equirectUv( normalize( direction + dx + dy ) ), 0.0 ).rgb;
			gl_FragColor = vec4( color * 0.25, 1.0 );

		}
	`)}function Lg(){return Oa("PMREMCubemapToCubemap",{envMap:{value:null},flipEnvMap:{value:-1}},`

		varying vec3 vWorldDirection;

		uniform samplerCube envMap;
		uniform float flipEnvMap;

		void main() {

			gl_FragColor = vec4( textureCube( envMap, vec3( flipEnvMap * vWorldDirection.x, vWorldDirection.yz ) ).rgb, 1.0 );

		}
	`)}function JS(i){let e=new WeakMap,t=new WeakMap,n=null;function s(d,f=!1){return d==null?null:f?o(d):r(d)}function r(d){if(d&&d.isTexture){let f=d.mapping;if(f===Pc||f===Ic)if(e.has(d)){let p=e.get(d).texture;return a(p,d.mapping)}else{let p=d.image;if(p&&p.height>0){let y=new Ua(p.height);return y.fromEquirectangularTexture(i,d),e.set(d,y),d.addEventListener("dispose",c),a(y.texture,d.mapping)}else return null}}return d}function o(d){if(d&&d.isTexture&&d.isPMREMTexture!==!0){let f=d.mapping,p=f===Pc||f===Ic,y=f===_r||f===xo;if(p||y){let m=t.get(d),g=m!==void 0?m.texture.pmremVersion:0;if(d.isRenderTargetTexture&&d.pmremVersion!==g)return n===null&&(n=new mh(i)),m=p?n.fromEquirectangular(d,m):n.fromCubemap(d,m),m.texture.pmremVersion=d.pmremVersion,t.set(d,m),m.texture;if(m!==void 0)return m.texture;{let v=d.image;return p&&v&&v.height>0||y&&v&&l(v)?(n===null&&(n=new mh(i)),m=p?n.fromEquirectangular(d):n.fromCubemap(d),m.texture.pmremVersion=d.pmremVersion,t.set(d,m),d.addEventListener("dispose",h),m.texture):null}}}return d}function a(d,f){return f===Pc?d.mapping=_r:f===Ic&&(d.mapping=xo),d}function l(d){let f=0,p=6;for(let y=0;y<p;y++)d[y]!==void 0&&f++;return f===p}function c(d){let f=d.target;f.removeEventListener("dispose",c);let p=e.get(f);p!==void 0&&(e.delete(f),p.dispose())}function h(d){let f=d.target;f.removeEventListener("dispose",h);let p=t.get(f);p!==void 0&&(t.delete(f),p.dispose())}function u(){e=new WeakMap,t=new WeakMap,n!==null&&(n.dispose(),n=null)}return{get:s,dispose:u}}function jS(i){let e={};function t(n){if(e[n]!==void 0)return e[n];let s=i.getExtension(n);return e[n]=s,s}return{has:function(n){return t(n)!==null},init:function(){t("EXT_color_buffer_float"),t("WEBGL_clip_cull_distance"),t("OES_texture_float_linear"),t("EXT_color_buffer_half_float"),t("WEBGL_multisampled_render_to_texture"),t("WEBGL_render_shared_exponent")},get:function(n){let s=t(n);return s===null&&Jo("WebGLRenderer: "+n+" extension not supported."),s}}}function QS(i,e,t,n){let s={},r=new WeakMap,o=new FinalizationRegistry(p=>delete s[p]);function a(p){l(p.target)}function l(p){p.index!==null&&e.remove(p.index);for(let m in p.attributes)e.remove(p.attributes[m]);p.removeEventListener("dispose",a),delete s[p.id],o.unregister(p);let y=r.get(p);y&&(e.remove(y),r.delete(p)),n.releaseStatesOfGeometry(p),p.isInstancedBufferGeometry===!0&&delete p._maxInstanceCount,t.memory.geometries--}function c(p,y){return s[y.id]!==void 0||(y.addEventListener("dispose",a),s[y.id]=new WeakRef(y),o.register(y,y.id,y),t.memory.geometries++),y}function h(p){let y=p.attributes;for(let m in y)e.update(y[m],i.ARRAY_BUFFER)}function u(p){let y=p.index,m=p.attributes.position,g=0;if(m===void 0)return;let v=y!==null?y.array.length:m.array.length/3-1,A=m.count>=65535?ca:la,S=new A(Math.ceil(v/3)*6,1),C=S.array;if(y!==null){let x=y.array;g=y.version;for(let E=0,B=0;E<v;E+=3){let N=x[E+0],D=x[E+1],G=x[E+2];C[B++]=N,C[B++]=D,C[B++]=D,C[B++]=G,C[B++]=G,C[B++]=N}}else{g=m.version;for(let x=0,E=0;x<v;x+=3){let B=x+0,N=x+1,D=x+2;C[E++]=B,C[E++]=N,C[E++]=N,C[E++]=D,C[E++]=D,C[E++]=B}}S.version=g;let T=r.get(p);T&&e.remove(T),r.set(p,S)}function d(p){let y=r.get(p);if(y){let m=p.index;m!==null&&y.version<m.version&&u(p)}else u(p);return r.get(p)}function f(){for(let p in s){let y=s[p].deref();y!==void 0&&l(y)}}return{get:c,update:h,getWireframeAttribute:d,dispose:f}}function eM(i,e,t){let n;function s(u){n=u}let r,o;function a(u){r=u.type,o=u.bytesPerElement}function l(u,d){i.drawElements(n,d,r,u*o),t.update(d,n,1)}function c(u,d,f){f!==0&&(i.drawElementsInstanced(n,d,r,u*o,f),t.update(d,n,f))}function h(u,d,f){if(f===0)return;e.get("WEBGL_multi_draw").multiDrawElementsWEBGL(n,d,0,r,u,0,f);let y=0;for(let m=0;m<f;m++)y+=d[m];t.update(y,n,1)}this.setMode=s,this.setIndex=a,this.render=l,this.renderInstances=c,this.renderMultiDraw=h}function tM(i){let e={geometries:0,textures:0},t={frame:0,calls:0,triangles:0,points:0,lines:0};function n(r,o,a){switch(t.calls++,o){case i.TRIANGLES:t.triangles+=a*(r/3);break;case i.LINES:t.lines+=a*(r/2);break;case i.LINE_STRIP:t.lines+=a*(r-1);break;case i.LINE_LOOP:t.lines+=a*r;break;case i.POINTS:t.points+=a*r;break;default:et("WebGLInfo: Unknown draw mode:",o);break}}function s(){t.calls=0,t.triangles=0,t.points=0,t.lines=0}return{memory:e,render:t,programs:null,autoReset:!0,reset:s,update:n}}function nM(i,e,t){let n=new WeakMap,s=new Ot;function r(o,a,l){let c=o.morphTargetInfluences,h=a.morphAttributes.position||a.morphAttributes.normal||a.morphAttributes.color,u=h!==void 0?h.length:0,d=n.get(a);if(d===void 0||d.count!==u){let B=function(){x.dispose(),n.delete(a),a.removeEventListener("dispose",B)};d!==void 0&&d.texture.dispose();let f=a.morphAttributes.position!==void 0,p=a.morphAttributes.normal!==void 0,y=a.morphAttributes.color!==void 0,m=a.morphAttributes.position||[],g=a.morphAttributes.normal||[],v=a.morphAttributes.color||[],A=0;f===!0&&(A=1),p===!0&&(A=2),y===!0&&(A=3);let S=a.attributes.position.count*A,C=1;S>e.maxTextureSize&&(C=Math.ceil(S/e.maxTextureSize),S=e.maxTextureSize);let T=new Float32Array(S*C*4*u),x=new oa(T,S,C,u);x.type=Ii,x.needsUpdate=!0;let E=A*4;for(let N=0;N<u;N++){let D=m[N],G=g[N],V=v[N],I=S*C*4*N;for(let W=0;W<D.count;W++){let $=W*E;f===!0&&(s.fromBufferAttribute(D,W),T[I+$+0]=s.x,T[I+$+1]=s.y,T[I+$+2]=s.z,T[I+$+3]=0),p===!0&&(s.fromBufferAttribute(G,W),T[I+$+4]=s.x,T[I+$+5]=s.y,T[I+$+6]=s.z,T[I+$+7]=0),y===!0&&(s.fromBufferAttribute(V,W),T[I+$+8]=s.x,T[I+$+9]=s.y,T[I+$+10]=s.z,T[I+$+11]=V.itemSize===4?s.w:1)}}d={count:u,texture:x,size:new ze(S,C)},n.set(a,d),a.addEventListener("dispose",B)}if(o.isInstancedMesh===!0&&o.morphTexture!==null)l.getUniforms().setValue(i,"morphTexture",o.morphTexture,t);else{let f=0;for(let y=0;y<c.length;y++)f+=c[y];let p=a.morphTargetsRelative?1:1-f;l.getUniforms().setValue(i,"morphTargetBaseInfluence",p),l.getUniforms().setValue(i,"morphTargetInfluences",c)}l.getUniforms().setValue(i,"morphTargetsTexture",d.texture,t),l.getUniforms().setValue(i,"morphTargetsTextureSize",d.size)}return{update:r}}function iM(i,e,t,n,s){let r=new WeakMap;function o(c){let h=s.render.frame,u=c.geometry,d=e.get(c,u);if(r.get(d)!==h&&(e.update(d),r.set(d,h)),c.isInstancedMesh&&(c.hasEventListener("dispose",l)===!1&&c.addEventListener("dispose",l),r.get(c)!==h&&(t.update(c.instanceMatrix,i.ARRAY_BUFFER),c.instanceColor!==null&&t.update(c.instanceColor,i.ARRAY_BUFFER),r.set(c,h))),c.isSkinnedMesh){let f=c.skeleton;r.get(f)!==h&&(f.update(),r.set(f,h))}return d}function a(){r=new WeakMap}function l(c){let h=c.target;h.removeEventListener("dispose",l),n.releaseStatesOfObject(h),t.remove(h.instanceMatrix),h.instanceColor!==null&&t.remove(h.instanceColor)}return{update:o,dispose:a}}var sM={[rd]:"LINEAR_TONE_MAPPING",[od]:"REINHARD_TONE_MAPPING",[ad]:"CINEON_TONE_MAPPING",[ld]:"ACES_FILMIC_TONE_MAPPING",[hd]:"AGX_TONE_MAPPING",[ud]:"NEUTRAL_TONE_MAPPING",[cd]:"CUSTOM_TONE_MAPPING"};function rM(i,e,t,n,s,r){let o=new Pn(e,t,{type:i,depthBuffer:s,stencilBuffer:r,samples:n?4:0,storeMultisampledDepthBuffer:!1,storeMultisampledStencilBuffer:!1,resolveDepthBuffer:!1,resolveStencilBuffer:!1}),a=null,l=null,c=null,h=new tn;h.setAttribute("position",new un([-1,3,0,-1,-1,0,3,-1,0],3)),h.setAttribute("uv",new un([0,2,0,0,2,0],2));let u=new mc({uniforms:{tDiffuse:{value:null}},vertexShader:`
			precision highp float;

			uniform mat4 modelViewMatrix;
			uniform mat4 projectionMatrix;

			attribute vec3 position;
			attribute vec2 uv;

			varying vec2 vUv;

			void main() {
				vUv = uv;
				gl_Position = projectionMatrix * modelViewMatrix * vec4( position, 1.0 );
			}`,fragmentShader:`
			precision highp float;

			uniform sampler2D tDiffuse;

			varying vec2 vUv;

			#include <tonemapping_pars_fragment>
			#include <colorspace_pars_fragment>

			void main() {
				gl_FragColor = texture2D( tDiffuse, vUv );

				#ifdef LINEAR_TONE_MAPPING
					gl_FragColor.rgb = LinearToneMapping( gl_FragColor.rgb );
				#elif defined( REINHARD_TONE_MAPPING )
					gl_FragColor.rgb = ReinhardToneMapping( gl_FragColor.rgb );
				#elif defined( CINEON_TONE_MAPPING )
					gl_FragColor.rgb = CineonToneMapping( gl_FragColor.rgb );
				#elif defined( ACES_FILMIC_TONE_MAPPING )
					gl_FragColor.rgb = ACESFilmicToneMapping( gl_FragColor.rgb );
				#elif defined( AGX_TONE_MAPPING )
					gl_FragColor.rgb = AgXToneMapping( gl_FragColor.rgb );
				#elif defined( NEUTRAL_TONE_MAPPING )
					gl_FragColor.rgb = NeutralToneMapping( gl_FragColor.rgb );
				#elif defined( CUSTOM_TONE_MAPPING )
					gl_FragColor.rgb = CustomToneMapping( gl_FragColor.rgb );
				#endif

				#ifdef SRGB_TRANSFER
					gl_FragColor = sRGBTransferOETF( gl_FragColor );
				#endif
			}`,depthTest:!1,depthWrite:!1}),d=new dn(h,u),f=new pr(-1,1,1,-1,0,1),p=null,y=null,m=!1,g,v=null,A=[],S=!1;this.setSize=function(C,T){o.setSize(C,T),a!==null&&a.setSize(C,T),l!==null&&l.setSize(C,T);for(let x=0;x<A.length;x++){let E=A[x];E.setSize&&E.setSize(C,T)}},this.setEffects=function(C){A=C,S=A.length>0&&A[0].isRenderPass===!0;let T=o.width,x=o.height;A.length>0&&a===null&&(a=new Pn(T,x,{type:Li,depthBuffer:!1,stencilBuffer:!1}),l=new Pn(T,x,{type:Li,depthBuffer:!1,stencilBuffer:!1}));let E=s===!0&&A.some(B=>B.needsDepthTexture===!0);E!==(o.depthTexture!==null)&&(E===!0&&c===null&&(c=new Pi(T,x),r===!0&&(c.format=ms,c.type=xr)),o.dispose(),o.depthTexture=E?c:null,o.resolveDepthBuffer=E,o.storeMultisampledDepthBuffer=E);for(let B=0;B<A.length;B++){let N=A[B];N.setSize&&N.setSize(T,x),E&&N.needsDepthTexture===!0&&N.setDepthTexture&&N.setDepthTexture(c)}},this.begin=function(C,T){if(m||C.toneMapping===Yi&&A.length===0)return!1;if(v=T,T!==null){let x=T.width,E=T.height;(o.width!==x||o.height!==E)&&this.setSize(x,E)}return S===!1&&C.setRenderTarget(o),g=C.toneMapping,C.toneMapping=Yi,!0},this.hasRenderPass=function(){return S},this.end=function(C,T){C.toneMapping=g,m=!0;let x=o,E=a;for(let B=0;B<A.length;B++){let N=A[B];N.enabled!==!1&&(N.render(C,E,x,T),N.needsSwap!==!1&&(x=E,E=E===a?l:a))}if(p!==C.outputColorSpace||y!==C.toneMapping){p=C.outputColorSpace,y=C.toneMapping,u.defines={},pt.getTransfer(p)===Tt&&(u.defines.SRGB_TRANSFER="");let B=sM[y];B&&(u.defines[B]=""),u.needsUpdate=!0}u.uniforms.tDiffuse.value=x.texture,C.setRenderTarget(v),C.render(d,f),v=null,m=!1},this.isCompositing=function(){return m},this.dispose=function(){o.dispose(),a!==null&&a.dispose(),l!==null&&l.dispose(),h.dispose(),u.dispose()}}var e0=new qn,t0=new Pi(1,1),n0=new pa(1),i0=new oa,s0=new ic,r0=new fa,Dg=[],Ng=[],Ug=new Float32Array(16),Og=new Float32Array(9),Fg=new Float32Array(4);function Mo(i,e,t){let n=i[0];if(n<=0||n>0)return i;let s=e*t,r=Dg[s];if(r===void 0&&(r=new Float32Array(s),Dg[s]=r),e!==0){n.toArray(r,0);for(let o=1,a=0;o!==e;++o)a+=t,i[o].toArray(r,a)}return r}function xn(i,e){if(i.length!==e.length)return!1;for(let t=0,n=i.length;t<n;t++)if(i[t]!==e[t])return!1;return!0}function vn(i,e){for(let t=0,n=e.length;t<n;t++)i[t]=e[t]}function _h(i,e){let t=Ng[e];t===void 0&&(t=new Int32Array(e),Ng[e]=t);for(let n=0;n!==e;++n)t[n]=i.allocateTextureUnit();return t}function oM(i,e){let t=this.cache;t[0]!==e&&(i.uniform1f(this.addr,e),t[0]=e)}function aM(i,e){let t=this.cache;if(e.x!==void 0)(t[0]!==e.x||t[1]!==e.y)&&(i.uniform2f(this.addr,e.x,e.y),t[0]=e.x,t[1]=e.y);else{if(xn(t,e))return;i.uniform2fv(this.addr,e),vn(t,e)}}function lM(i,e){let t=this.cache;if(e.x!==void 0)(t[0]!==e.x||t[1]!==e.y||t[2]!==e.z)&&(i.uniform3f(this.addr,e.x,e.y,e.z),t[0]=e.x,t[1]=e.y,t[2]=e.z);else if(e.r!==void 0)(t[0]!==e.r||t[1]!==e.g||t[2]!==e.b)&&(i.uniform3f(this.addr,e.r,e.g,e.b),t[0]=e.r,t[1]=e.g,t[2]=e.b);else{if(xn(t,e))return;i.uniform3fv(this.addr,e),vn(t,e)}}function cM(i,e){let t=this.cache;if(e.x!==void 0)(t[0]!==e.x||t[1]!==e.y||t[2]!==e.z||t[3]!==e.w)&&(i.uniform4f(this.addr,e.x,e.y,e.z,e.w),t[0]=e.x,t[1]=e.y,t[2]=e.z,t[3]=e.w);else{if(xn(t,e))return;i.uniform4fv(this.addr,e),vn(t,e)}}function hM(i,e){let t=this.cache,n=e.elements;if(n===void 0){if(xn(t,e))return;i.uniformMatrix2fv(this.addr,!1,e),vn(t,e)}else{if(xn(t,n))return;Fg.set(n),i.uniformMatrix2fv(this.addr,!1,Fg),vn(t,n)}}function uM(i,e){let t=this.cache,n=e.elements;if(n===void 0){if(xn(t,e))return;i.uniformMatrix3fv(this.addr,!1,e),vn(t,e)}else{if(xn(t,n))return;Og.set(n),i.uniformMatrix3fv(this.addr,!1,Og),vn(t,n)}}function dM(i,e){let t=this.cache,n=e.elements;if(n===void 0){if(xn(t,e))return;i.uniformMatrix4fv(this.addr,!1,e),vn(t,e)}else{if(xn(t,n))return;Ug.set(n),i.uniformMatrix4fv(this.addr,!1,Ug),vn(t,n)}}function fM(i,e){let t=this.cache;t[0]!==e&&(i.uniform1i(this.addr,e),t[0]=e)}function pM(i,e){let t=this.cache;if(e.x!==void 0)(t[0]!==e.x||t[1]!==e.y)&&(i.uniform2i(this.addr,e.x,e.y),t[0]=e.x,t[1]=e.y);else{if(xn(t,e))return;i.uniform2iv(this.addr,e),vn(t,e)}}function mM(i,e){let t=this.cache;if(e.x!==void 0)(t[0]!==e.x||t[1]!==e.y||t[2]!==e.z)&&(i.uniform3i(this.addr,e.x,e.y,e.z),t[0]=e.x,t[1]=e.y,t[2]=e.z);else{if(xn(t,e))return;i.uniform3iv(this.addr,e),vn(t,e)}}function gM(i,e){let t=this.cache;if(e.x!==void 0)(t[0]!==e.x||t[1]!==e.y||t[2]!==e.z||t[3]!==e.w)&&(i.uniform4i(this.addr,e.x,e.y,e.z,e.w),t[0]=e.x,t[1]=e.y,t[2]=e.z,t[3]=e.w);else{if(xn(t,e))return;i.uniform4iv(this.addr,e),vn(t,e)}}function _M(i,e){let t=this.cache;t[0]!==e&&(i.uniform1ui(this.addr,e),t[0]=e)}function xM(i,e){let t=this.cache;if(e.x!==void 0)(t[0]!==e.x||t[1]!==e.y)&&(i.uniform2ui(this.addr,e.x,e.y),t[0]=e.x,t[1]=e.y);else{if(xn(t,e))return;i.uniform2uiv(this.addr,e),vn(t,e)}}function vM(i,e){let t=this.cache;if(e.x!==void 0)(t[0]!==e.x||t[1]!==e.y||t[2]!==e.z)&&(i.uniform3ui(this.addr,e.x,e.y,e.z),t[0]=e.x,t[1]=e.y,t[2]=e.z);else{if(xn(t,e))return;i.uniform3uiv(this.addr,e),vn(t,e)}}function yM(i,e){let t=this.cache;if(e.x!==void 0)(t[0]!==e.x||t[1]!==e.y||t[2]!==e.z||t[3]!==e.w)&&(i.uniform4ui(this.addr,e.x,e.y,e.z,e.w),t[0]=e.x,t[1]=e.y,t[2]=e.z,t[3]=e.w);else{if(xn(t,e))return;i.uniform4uiv(this.addr,e),vn(t,e)}}function xh(i){return i.version===0&&(i.compareFunction=Sd,i.needsUpdate=!0),i}function bM(i,e,t){let n=this.cache,s=t.allocateTextureUnit();n[0]!==s&&(i.uniform1i(this.addr,s),n[0]=s);let r;this.type===i.SAMPLER_2D_SHADOW?r=xh(t0):r=e0,t.setTexture2D(e||r,s)}function SM(i,e,t){let n=this.cache,s=t.allocateTextureUnit();n[0]!==s&&(i.uniform1i(this.addr,s),n[0]=s),t.setTexture3D(e||s0,s)}function MM(i,e,t){let n=this.cache,s=t.allocateTextureUnit();n[0]!==s&&(i.uniform1i(this.addr,s),n[0]=s);let r;this.type===i.SAMPLER_CUBE_SHADOW?r=xh(n0):r=r0,t.setTextureCube(e||r,s)}function wM(i,e,t){let n=this.cache,s=t.allocateTextureUnit();n[0]!==s&&(i.uniform1i(this.addr,s),n[0]=s),t.setTexture2DArray(e||i0,s)}function EM(i){switch(i){case 5126:return oM;case 35664:return aM;case 35665:return lM;case 35666:return cM;case 35674:return hM;case 35675:return uM;case 35676:return dM;case 5124:case 35670:return fM;case 35667:case 35671:return pM;case 35668:case 35672:return mM;case 35669:case 35673:return gM;case 5125:return _M;case 36294:return xM;case 36295:return vM;case 36296:return yM;case 35678:case 36198:case 36298:case 36306:case 35682:return bM;case 35679:case 36299:case 36307:return SM;case 35680:case 36300:case 36308:case 36293:return MM;case 36289:case 36303:case 36311:case 36292:return wM}}function TM(i,e){i.uniform1fv(this.addr,e)}function AM(i,e){let t=Mo(e,this.size,2);i.uniform2fv(this.addr,t)}function RM(i,e){let t=Mo(e,this.size,3);i.uniform3fv(this.addr,t)}function CM(i,e){let t=Mo(e,this.size,4);i.uniform4fv(this.addr,t)}function PM(i,e){let t=Mo(e,this.size,4);i.uniformMatrix2fv(this.addr,!1,t)}function IM(i,e){let t=Mo(e,this.size,9);i.uniformMatrix3fv(this.addr,!1,t)}function LM(i,e){let t=Mo(e,this.size,16);i.uniformMatrix4fv(this.addr,!1,t)}function DM(i,e){i.uniform1iv(this.addr,e)}function NM(i,e){i.uniform2iv(this.addr,e)}function UM(i,e){i.uniform3iv(this.addr,e)}function OM(i,e){i.uniform4iv(this.addr,e)}function FM(i,e){i.uniform1uiv(this.addr,e)}function BM(i,e){i.uniform2uiv(this.addr,e)}function kM(i,e){i.uniform3uiv(this.addr,e)}function zM(i,e){i.uniform4uiv(this.addr,e)}function HM(i,e,t){let n=this.cache,s=e.length,r=_h(t,s);xn(n,r)||(i.uniform1iv(this.addr,r),vn(n,r));let o;this.type===i.SAMPLER_2D_SHADOW?o=xh(t0):o=e0;for(let a=0;a!==s;++a)t.setTexture2D(e[a]||o,r[a])}function VM(i,e,t){let n=this.cache,s=e.length,r=_h(t,s);xn(n,r)||(i.uniform1iv(this.addr,r),vn(n,r));for(let o=0;o!==s;++o)t.setTexture3D(e[o]||s0,r[o])}function GM(i,e,t){let n=this.cache,s=e.length,r=_h(t,s);xn(n,r)||(i.uniform1iv(this.addr,r),vn(n,r));let o;this.type===i.SAMPLER_CUBE_SHADOW?o=xh(n0):o=r0;for(let a=0;a!==s;++a)t.setTextureCube(e[a]||o,r[a])}function WM(i,e,t){let n=this.cache,s=e.length,r=_h(t,s);xn(n,r)||(i.uniform1iv(this.addr,r),vn(n,r));for(let o=0;o!==s;++o)t.setTexture2DArray(e[o]||i0,r[o])}function XM(i){switch(i){case 5126:return TM;case 35664:return AM;case 35665:return RM;case 35666:return CM;case 35674:return PM;case 35675:return IM;case 35676:return LM;case 5124:case 35670:return DM;case 35667:case 35671:return NM;case 35668:case 35672:return UM;case 35669:case 35673:return OM;case 5125:return FM;case 36294:return BM;case 36295:return kM;case 36296:return zM;case 35678:case 36198:case 36298:case 36306:case 35682:return HM;case 35679:case 36299:case 36307:return VM;case 35680:case 36300:case 36308:case 36293:return GM;case 36289:case 36303:case 36311:case 36292:return WM}}var zd=class{constructor(e,t,n){this.id=e,this.addr=n,this.cache=[],this.type=t.type,this.setValue=EM(t.type)}},Hd=class{constructor(e,t,n){this.id=e,this.addr=n,this.cache=[],this.type=t.type,this.size=t.size,this.setValue=XM(t.type)}},Vd=class{constructor(e){this.id=e,this.seq=[],this.map={}}setValue(e,t,n){let s=this.seq;for(let r=0,o=s.length;r!==o;++r){let a=s[r];a.setValue(e,t[a.id],n)}}},Bd=/(\w+)(\])?(\[|\.)?/g;function Bg(i,e){i.seq.push(e),i.map[e.id]=e}function qM(i,e,t){let n=i.name,s=n.length;for(Bd.lastIndex=0;;){let r=Bd.exec(n),o=Bd.lastIndex,a=r[1],l=r[2]==="]",c=r[3];if(l&&(a=a|0),c===void 0||c==="["&&o+2===s){Bg(t,c===void 0?new zd(a,i,e):new Hd(a,i,e));break}else{let u=t.map[a];u===void 0&&(u=new Vd(a),Bg(t,u)),t=u}}}var So=class{constructor(e,t){this.seq=[],this.map={};let n=e.getProgramParameter(t,e.ACTIVE_UNIFORMS);for(let o=0;o<n;++o){let a=e.getActiveUniform(t,o),l=e.getUniformLocation(t,a.name);qM(a,l,this)}let s=[],r=[];for(let o of this.seq)o.type===e.SAMPLER_2D_SHADOW||o.type===e.SAMPLER_CUBE_SHADOW||o.type===e.SAMPLER_2D_ARRAY_SHADOW?s.push(o):r.push(o);s.length>0&&(this.seq=s.concat(r))}setValue(e,t,n,s){let r=this.map[t];r!==void 0&&r.setValue(e,n,s)}setOptional(e,t,n){let s=t[n];s!==void 0&&this.setValue(e,n,s)}static upload(e,t,n,s){for(let r=0,o=t.length;r!==o;++r){let a=t[r],l=n[a.id];l.needsUpdate!==!1&&a.setValue(e,l.value,s)}}static seqWithValue(e,t){let n=[];for(let s=0,r=e.length;s!==r;++s){let o=e[s];o.id in t&&n.push(o)}return n}};function kg(i,e,t){let n=i.createShader(e);return i.shaderSource(n,t),i.compileShader(n),n}var YM=37297,$M=0;function ZM(i,e){let t=i.split(`
`),n=[],s=Math.max(e-6,0),r=Math.min(e+6,t.length);for(let o=s;o<r;o++){let a=o+1;n.push(`${a===e?">":" "} ${a}: ${t[o]}`)}return n.join(`
`)}var zg=new tt;function KM(i){pt._getMatrix(zg,pt.workingColorSpace,i);let e=`mat3( ${zg.elements.map(t=>t.toFixed(4))} )`;switch(pt.getTransfer(i)){case ia:return[e,"LinearTransferOETF"];case Tt:return[e,"sRGBTransferOETF"];default:return $e("WebGLProgram: Unsupported color space: ",i),[e,"LinearTransferOETF"]}}function Hg(i,e,t){let n=i.getShaderParameter(e,i.COMPILE_STATUS),r=(i.getShaderInfoLog(e)||"").trim();if(n&&r==="")return"";let o=/ERROR: 0:(\d+)/.exec(r);if(o){let a=parseInt(o[1]);return t.toUpperCase()+`

`+r+`

`+ZM(i.getShaderSource(e),a)}else return r}function JM(i,e){let t=KM(e);return[`vec4 ${i}( vec4 value ) {`,`	return ${t[1]}( vec4( ${t[0]} * value.rgb, value.a ) );`,"}"].join(`
`)}var jM={[rd]:"Linear",[od]:"Reinhard",[ad]:"Cineon",[ld]:"ACESFilmic",[hd]:"AgX",[ud]:"Neutral",[cd]:"Custom"};function QM(i,e){let t=jM[e];return t===void 0?($e("WebGLProgram: Unsupported toneMapping:",e),"vec3 "+i+"( vec3 color ) { return LinearToneMapping( color ); }"):"vec3 "+i+"( vec3 color ) { return "+t+"ToneMapping( color ); }"}var ph=new F;function ew(){pt.getLuminanceCoefficients(ph);let i=ph.x.toFixed(4),e=ph.y.toFixed(4),t=ph.z.toFixed(4);return["float luminance( const in vec3 rgb ) {",`	const vec3 weights = vec3( ${i}, ${e}, ${t} );`,"	return dot( weights, rgb );","}"].join(`
`)}function tw(i){return[i.extensionClipCullDistance?"#extension GL_ANGLE_clip_cull_distance : require":"",i.extensionMultiDraw?"#extension GL_ANGLE_multi_draw : require":""].filter(Na).join(`
`)}function nw(i){let e=[];for(let t in i){let n=i[t];n!==!1&&e.push("#define "+t+" "+n)}return e.join(`
`)}function iw(i,e){let t={},n=i.getProgramParameter(e,i.ACTIVE_ATTRIBUTES);for(let s=0;s<n;s++){let r=i.getActiveAttrib(e,s),o=r.name,a=1;r.type===i.FLOAT_MAT2&&(a=2),r.type===i.FLOAT_MAT3&&(a=3),r.type===i.FLOAT_MAT4&&(a=4),t[o]={type:r.type,location:i.getAttribLocation(e,o),locationSize:a}}return t}function Na(i){return i!==""}function Vg(i,e){let t=e.numSpotLightShadows+e.numSpotLightMaps-e.numSpotLightShadowsWithMaps;return i.replace(/NUM_SUN_LIGHTS/g,e.numSunLights).replace(/NUM_DIR_LIGHTS/g,e.numDirLights).replace(/NUM_SPOT_LIGHTS/g,e.numSpotLights).replace(/NUM_SPOT_LIGHT_MAPS/g,e.numSpotLightMaps).replace(/NUM_SPOT_LIGHT_COORDS/g,t).replace(/NUM_RECT_AREA_LIGHTS/g,e.numRectAreaLights).replace(/NUM_POINT_LIGHTS/g,e.numPointLights).replace(/NUM_HEMI_LIGHTS/g,e.numHemiLights).replace(/NUM_SUN_LIGHT_SHADOWS/g,e.numSunLightShadows).replace(/NUM_DIR_LIGHT_SHADOWS/g,e.numDirLightShadows).replace(/NUM_SPOT_LIGHT_SHADOWS_WITH_MAPS/g,e.numSpotLightShadowsWithMaps).replace(/NUM_SPOT_LIGHT_SHADOWS/g,e.numSpotLightShadows).replace(/NUM_POINT_LIGHT_SHADOWS/g,e.numPointLightShadows).replace(/NUM_LIGHT_PROBE_GRIDS/g,e.numLightProbeGrids)}function Gg(i,e){return i.replace(/NUM_CLIPPING_PLANES/g,e.numClippingPlanes).replace(/UNION_CLIPPING_PLANES/g,e.numClippingPlanes-e.numClipIntersection)}var sw=/^[ \t]*#include +<([\w\d./]+)>/gm;function Gd(i){return i.replace(sw,rw)}function rw(i,e){let t=ht[e];if(t===void 0)throw new Error("THREE.WebGLProgram: Can not resolve #include <"+e+">");return Gd(t)}var ow=/#pragma unroll_loop_start\s+for\s*\(\s*int\s+i\s*=\s*(\d+)\s*;\s*i\s*<\s*(\d+)\s*;\s*i\s*\+\+\s*\)\s*{([\s\S]+?)}\s+#pragma unroll_loop_end/g;function Wg(i){return i.replace(ow,aw)}function aw(i,e,t,n){let s="";for(let r=parseInt(e);r<parseInt(t);r++)s+=n.replace(/\[\s*i\s*\]/g,"[ "+r+" ]").replace(/UNROLLED_LOOP_INDEX/g,r);return s}function Xg(i){let e=`precision ${i.precision} float;
	precision ${i.precision} int;
	precision ${i.precision} sampler2D;
	precision ${i.precision} samplerCube;
	precision ${i.precision} sampler3D;
	precision ${i.precision} sampler2DArray;
	precision ${i.precision} sampler2DShadow;
	precision ${i.precision} samplerCubeShadow;
	precision ${i.precision} sampler2DArrayShadow;
	precision ${i.precision} isampler2D;
	precision ${i.precision} isampler3D;
	precision ${i.precision} isamplerCube;
	precision ${i.precision} isampler2DArray;
	precision ${i.precision} usampler2D;
	precision ${i.precision} usampler3D;
	precision ${i.precision} usamplerCube;
	precision ${i.precision} usampler2DArray;
	`;return i.precision==="highp"?e+=`
#define HIGH_PRECISION`:i.precision==="mediump"?e+=`
#define MEDIUM_PRECISION`:i.precision==="lowp"&&(e+=`
#define LOW_PRECISION`),e}var lw={[Ma]:"SHADOWMAP_TYPE_PCF",[go]:"SHADOWMAP_TYPE_VSM"};function cw(i){return lw[i.shadowMapType]||"SHADOWMAP_TYPE_BASIC"}var hw={[xo]:"ENVMAP_MODE_REFRACTION"};function uw(i){return i.envMap===!1?"ENVMAP_MODE_REFLECTION":hw[i.envMapMode]||"ENVMAP_MODE_REFLECTION"}var dw={[sd]:"ENVMAP_BLENDING_MULTIPLY",[ag]:"ENVMAP_BLENDING_MIX",[lg]:"ENVMAP_BLENDING_ADD"};function fw(i){return i.envMap===!1?"ENVMAP_BLENDING_NONE":dw[i.combine]||"ENVMAP_BLENDING_NONE"}function pw(i,e,t,n){let s=i.getContext(),r=t.defines,o=t.vertexShader,a=t.fragmentShader,l=cw(t),c=t.envMapPMREM===!0?"ENVMAP_TYPE_PMREM":"ENVMAP_TYPE_CUBE",h=uw(t),u=fw(t),d=tw(t),f=nw(r),p=s.createProgram(),y,m,g=t.glslVersion?"#version "+t.glslVersion+`
`:"";t.isRawShaderMaterial?(y=["#define SHADER_TYPE "+t.shaderType,"#define SHADER_NAME "+t.shaderName,f].filter(Na).join(`
`),y.length>0&&(y+=`
`),m=["#define SHADER_TYPE "+t.shaderType,"#define SHADER_NAME "+t.shaderName,f].filter(Na).join(`
`),m.length>0&&(m+=`
`)):(y=[Xg(t),"#define SHADER_TYPE "+t.shaderType,"#define SHADER_NAME "+t.shaderName,f,t.extensionClipCullDistance?"#define USE_CLIP_DISTANCE":"",t.batching?"#define USE_BATCHING":"",t.batchingColor?"#define USE_BATCHING_COLOR":"",t.instancing?"#define USE_INSTANCING":"",t.instancingColor?"#define USE_INSTANCING_COLOR":"",t.instancingMorph?"#define USE_INSTANCING_MORPH":"",t.useFog&&t.fog?"#define USE_FOG":"",t.useFog&&t.fogExp2?"#define FOG_EXP2":"",t.map?"#define USE_MAP":"",t.envMap?"#define USE_ENVMAP":"",t.envMap?"#define "+h:"",t.lightMap?"#define USE_LIGHTMAP":"",t.aoMap?"#define USE_AOMAP":"",t.bumpMap?"#define USE_BUMPMAP":"",t.normalMap?"#define USE_NORMALMAP":"",t.normalMapObjectSpace?"#define USE_NORMALMAP_OBJECTSPACE":"",t.normalMapTangentSpace?"#define USE_NORMALMAP_TANGENTSPACE":"",t.displacementMap?"#define USE_DISPLACEMENTMAP":"",t.emissiveMap?"#define USE_EMISSIVEMAP":"",t.anisotropy?"#define USE_ANISOTROPY":"",t.anisotropyMap?"#define USE_ANISOTROPYMAP":"",t.clearcoatMap?"#define USE_CLEARCOATMAP":"",t.clearcoatRoughnessMap?"#define USE_CLEARCOAT_ROUGHNESSMAP":"",t.clearcoatNormalMap?"#define USE_CLEARCOAT_NORMALMAP":"",t.diffuseRoughnessMap?"#define USE_DIFFUSE_ROUGHNESSMAP":"",t.iridescenceMap?"#define USE_IRIDESCENCEMAP":"",t.iridescenceThicknessMap?"#define USE_IRIDESCENCE_THICKNESSMAP":"",t.specularMap?"#define USE_SPECULARMAP":"",t.specularColorMap?"#define USE_SPECULAR_COLORMAP":"",t.specularIntensityMap?"#define USE_SPECULAR_INTENSITYMAP":"",t.roughnessMap?"#define USE_ROUGHNESSMAP":"",t.metalnessMap?"#define USE_METALNESSMAP":"",t.alphaMap?"#define USE_ALPHAMAP":"",t.alphaHash?"#define USE_ALPHAHASH":"",t.transmission?"#define USE_TRANSMISSION":"",t.transmissionMap?"#define USE_TRANSMISSIONMAP":"",t.thicknessMap?"#define USE_THICKNESSMAP":"",t.sheenColorMap?"#define USE_SHEEN_COLORMAP":"",t.sheenRoughnessMap?"#define USE_SHEEN_ROUGHNESSMAP":"",t.mapUv?"#define MAP_UV "+t.mapUv:"",t.alphaMapUv?"#define ALPHAMAP_UV "+t.alphaMapUv:"",t.lightMapUv?"#define LIGHTMAP_UV "+t.lightMapUv:"",t.aoMapUv?"#define AOMAP_UV "+t.aoMapUv:"",t.emissiveMapUv?"#define EMISSIVEMAP_UV "+t.emissiveMapUv:"",t.bumpMapUv?"#define BUMPMAP_UV "+t.bumpMapUv:"",t.normalMapUv?"#define NORMALMAP_UV "+t.normalMapUv:"",t.displacementMapUv?"#define DISPLACEMENTMAP_UV "+t.displacementMapUv:"",t.metalnessMapUv?"#define METALNESSMAP_UV "+t.metalnessMapUv:"",t.roughnessMapUv?"#define ROUGHNESSMAP_UV "+t.roughnessMapUv:"",t.anisotropyMapUv?"#define ANISOTROPYMAP_UV "+t.anisotropyMapUv:"",t.clearcoatMapUv?"#define CLEARCOATMAP_UV "+t.clearcoatMapUv:"",t.clearcoatNormalMapUv?"#define CLEARCOAT_NORMALMAP_UV "+t.clearcoatNormalMapUv:"",t.clearcoatRoughnessMapUv?"#define CLEARCOAT_ROUGHNESSMAP_UV "+t.clearcoatRoughnessMapUv:"",t.diffuseRoughnessMapUv?"#define DIFFUSE_ROUGHNESSMAP_UV "+t.diffuseRoughnessMapUv:"",t.iridescenceMapUv?"#define IRIDESCENCEMAP_UV "+t.iridescenceMapUv:"",t.iridescenceThicknessMapUv?"#define IRIDESCENCE_THICKNESSMAP_UV "+t.iridescenceThicknessMapUv:"",t.sheenColorMapUv?"#define SHEEN_COLORMAP_UV "+t.sheenColorMapUv:"",t.sheenRoughnessMapUv?"#define SHEEN_ROUGHNESSMAP_UV "+t.sheenRoughnessMapUv:"",t.specularMapUv?"#define SPECULARMAP_UV "+t.specularMapUv:"",t.specularColorMapUv?"#define SPECULAR_COLORMAP_UV "+t.specularColorMapUv:"",t.specularIntensityMapUv?"#define SPECULAR_INTENSITYMAP_UV "+t.specularIntensityMapUv:"",t.transmissionMapUv?"#define TRANSMISSIONMAP_UV "+t.transmissionMapUv:"",t.thicknessMapUv?"#define THICKNESSMAP_UV "+t.thicknessMapUv:"",t.vertexTangents&&t.flatShading===!1?"#define USE_TANGENT":"",t.vertexNormals?"#define HAS_NORMAL":"",t.vertexColors?"#define USE_COLOR":"",t.vertexAlphas?"#define USE_COLOR_ALPHA":"",t.vertexUv1s?"#define USE_UV1":"",t.vertexUv2s?"#define USE_UV2":"",t.vertexUv3s?"#define USE_UV3":"",t.pointsUvs?"#define USE_POINTS_UV":"",t.flatShading?"#define FLAT_SHADED":"",t.skinning?"#define USE_SKINNING":"",t.morphTargets?"#define USE_MORPHTARGETS":"",t.morphNormals&&t.flatShading===!1?"#define USE_MORPHNORMALS":"",t.morphColors?"#define USE_MORPHCOLORS":"",t.morphTargetsCount>0?"#define MORPHTARGETS_TEXTURE_STRIDE "+t.morphTextureStride:"",t.morphTargetsCount>0?"#define MORPHTARGETS_COUNT "+t.morphTargetsCount:"",t.doubleSided?"#define DOUBLE_SIDED":"",t.flipSided?"#define FLIP_SIDED":"",t.shadowMapEnabled?"#define USE_SHADOWMAP":"",t.shadowMapEnabled?"#define "+l:"",t.sizeAttenuation?"#define USE_SIZEATTENUATION":"",t.numLightProbes>0?"#define USE_LIGHT_PROBES":"",t.logarithmicDepthBuffer?"#define USE_LOGARITHMIC_DEPTH_BUFFER":"",t.reversedDepthBuffer?"#define USE_REVERSED_DEPTH_BUFFER":"","uniform mat4 modelMatrix;","uniform mat4 modelViewMatrix;","uniform mat4 projectionMatrix;","uniform mat4 viewMatrix;","uniform mat3 normalMatrix;","uniform vec3 cameraPosition;","uniform bool isOrthographic;","#ifdef USE_INSTANCING","	attribute mat4 instanceMatrix;","#endif","#ifdef USE_INSTANCING_COLOR","	attribute vec3 instanceColor;","#endif","#ifdef USE_INSTANCING_MORPH","	uniform sampler2D morphTexture;","#endif","attribute vec3 position;","attribute vec3 normal;","attribute vec2 uv;","#ifdef USE_UV1","	attribute vec2 uv1;","#endif","#ifdef USE_UV2","	attribute vec2 uv2;","#endif","#ifdef USE_UV3","	attribute vec2 uv3;","#endif","#ifdef USE_TANGENT","	attribute vec4 tangent;","#endif","#if defined( USE_COLOR_ALPHA )","	attribute vec4 color;","#elif defined( USE_COLOR )","	attribute vec3 color;","#endif","#ifdef USE_SKINNING","	attribute vec4 skinIndex;","	attribute vec4 skinWeight;","#endif",`
`].filter(Na).join(`
`),m=[Xg(t),"#define SHADER_TYPE "+t.shaderType,"#define SHADER_NAME "+t.shaderName,f,t.useFog&&t.fog?"#define USE_FOG":"",t.useFog&&t.fogExp2?"#define FOG_EXP2":"",t.alphaToCoverage?"#define ALPHA_TO_COVERAGE":"",t.map?"#define USE_MAP":"",t.matcap?"#define USE_MATCAP":"",t.envMap?"#define USE_ENVMAP":"",t.envMap?"#define "+c:"",t.envMap?"#define "+h:"",t.envMap?"#define "+u:"",t.envMapPMREM?"#define ENVMAP_MAX_LOD "+t.envMapMaxLod+".0":"",t.envMapPMREM?"#define ENVMAP_SIZE "+t.envMapSize+".0":"",t.lightMap?"#define USE_LIGHTMAP":"",t.aoMap?"#define USE_AOMAP":"",t.bumpMap?"#define USE_BUMPMAP":"",t.normalMap?"#define USE_NORMALMAP":"",t.normalMapObjectSpace?"#define USE_NORMALMAP_OBJECTSPACE":"",t.normalMapTangentSpace?"#define USE_NORMALMAP_TANGENTSPACE":"",t.packedNormalMap?"#define USE_PACKED_NORMALMAP":"",t.emissiveMap?"#define USE_EMISSIVEMAP":"",t.anisotropy?"#define USE_ANISOTROPY":"",t.anisotropyMap?"#define USE_ANISOTROPYMAP":"",t.clearcoat?"#define USE_CLEARCOAT":"",t.clearcoatMap?"#define USE_CLEARCOATMAP":"",t.clearcoatRoughnessMap?"#define USE_CLEARCOAT_ROUGHNESSMAP":"",t.clearcoatNormalMap?"#define USE_CLEARCOAT_NORMALMAP":"",t.diffuseRoughness?"#define USE_DIFFUSE_ROUGHNESS":"",t.diffuseRoughnessMap?"#define USE_DIFFUSE_ROUGHNESSMAP":"",t.dispersion?"#define USE_DISPERSION":"",t.retroreflection?"#define USE_RETROREFLECTION":"",t.iridescence?"#define USE_IRIDESCENCE":"",t.iridescenceMap?"#define USE_IRIDESCENCEMAP":"",t.iridescenceThicknessMap?"#define USE_IRIDESCENCE_THICKNESSMAP":"",t.specularMap?"#define USE_SPECULARMAP":"",t.specularColorMap?"#define USE_SPECULAR_COLORMAP":"",t.specularIntensityMap?"#define USE_SPECULAR_INTENSITYMAP":"",t.roughnessMap?"#define USE_ROUGHNESSMAP":"",t.metalnessMap?"#define USE_METALNESSMAP":"",t.alphaMap?"#define USE_ALPHAMAP":"",t.alphaTest?"#define USE_ALPHATEST":"",t.alphaHash?"#define USE_ALPHAHASH":"",t.sheen?"#define USE_SHEEN":"",t.sheenColorMap?"#define USE_SHEEN_COLORMAP":"",t.sheenRoughnessMap?"#define USE_SHEEN_ROUGHNESSMAP":"",t.transmission?"#define USE_TRANSMISSION":"",t.transmissionMap?"#define USE_TRANSMISSIONMAP":"",t.thicknessMap?"#define USE_THICKNESSMAP":"",t.vertexTangents&&t.flatShading===!1?"#define USE_TANGENT":"",t.vertexColors||t.instancingColor?"#define USE_COLOR":"",t.vertexAlphas||t.batchingColor?"#define USE_COLOR_ALPHA":"",t.vertexUv1s?"#define USE_UV1":"",t.vertexUv2s?"#define USE_UV2":"",t.vertexUv3s?"#define USE_UV3":"",t.pointsUvs?"#define USE_POINTS_UV":"",t.gradientMap?"#define USE_GRADIENTMAP":"",t.flatShading?"#define FLAT_SHADED":"",t.doubleSided?"#define DOUBLE_SIDED":"",t.flipSided?"#define FLIP_SIDED":"",t.shadowMapEnabled?"#define USE_SHADOWMAP":"",t.shadowMapEnabled?"#define "+l:"",t.premultipliedAlpha?"#define PREMULTIPLIED_ALPHA":"",t.numLightProbes>0?"#define USE_LIGHT_PROBES":"",t.decodeVideoTexture?"#define DECODE_VIDEO_TEXTURE":"",t.decodeVideoTextureEmissive?"#define DECODE_VIDEO_TEXTURE_EMISSIVE":"",t.logarithmicDepthBuffer?"#define USE_LOGARITHMIC_DEPTH_BUFFER":"",t.reversedDepthBuffer?"#define USE_REVERSED_DEPTH_BUFFER":"","uniform mat4 viewMatrix;","uniform vec3 cameraPosition;","uniform bool isOrthographic;",t.toneMapping!==Yi?"#define TONE_MAPPING":"",t.toneMapping!==Yi?ht.tonemapping_pars_fragment:"",t.toneMapping!==Yi?QM("toneMapping",t.toneMapping):"",t.dithering?"#define DITHERING":"",t.opaque?"#define OPAQUE":"",ht.colorspace_pars_fragment,JM("linearToOutputTexel",t.outputColorSpace),ew(),t.useDepthPacking?"#define DEPTH_PACKING "+t.depthPacking:"",`
`].filter(Na).join(`
`)),o=Gd(o),o=Vg(o,t),o=Gg(o,t),a=Gd(a),a=Vg(a,t),a=Gg(a,t),o=Wg(o),a=Wg(a),t.isRawShaderMaterial!==!0&&(g=`#version 300 es
`,y=[d,"#define attribute in","#define varying out","#define texture2D texture"].join(`
`)+`
`+y,m=["#define varying in",t.glslVersion===La?"":"layout(location = 0) out highp vec4 pc_fragColor;",t.glslVersion===La?"":"#define gl_FragColor pc_fragColor","#define gl_FragDepthEXT gl_FragDepth","#define texture2D texture","#define textureCube texture","#define texture2DProj textureProj","#define texture2DLodEXT textureLod","#define texture2DProjLodEXT textureProjLod","#define textureCubeLodEXT textureLod","#define texture2DGradEXT textureGrad","#define texture2DProjGradEXT textureProjGrad","#define textureCubeGradEXT textureGrad"].join(`
`)+`
`+m);let v=g+y+o,A=g+m+a,S=kg(s,s.VERTEX_SHADER,v),C=kg(s,s.FRAGMENT_SHADER,A);s.attachShader(p,S),s.attachShader(p,C),t.index0AttributeName!==void 0?s.bindAttribLocation(p,0,t.index0AttributeName):t.hasPositionAttribute===!0&&s.bindAttribLocation(p,0,"position"),s.linkProgram(p);function T(N){if(i.debug.checkShaderErrors){let D=s.getProgramInfoLog(p)||"",G=s.getShaderInfoLog(S)||"",V=s.getShaderInfoLog(C)||"",I=D.trim(),W=G.trim(),$=V.trim(),z=!0,ce=!0;if(s.getProgramParameter(p,s.LINK_STATUS)===!1)if(z=!1,typeof i.debug.onShaderError=="function")i.debug.onShaderError(s,p,S,C);else{let K=Hg(s,S,"vertex"),ee=Hg(s,C,"fragment");et("WebGLProgram: Shader Error "+s.getError()+" - VALIDATE_STATUS "+s.getProgramParameter(p,s.VALIDATE_STATUS)+`

Material Name: `+N.name+`
Material Type: `+N.type+`

Program Info Log: `+I+`
`+K+`
`+ee)}else I!==""?$e("WebGLProgram: Program Info Log:",I):(W===""||$==="")&&(ce=!1);ce&&(N.diagnostics={runnable:z,programLog:I,vertexShader:{log:W,prefix:y},fragmentShader:{log:$,prefix:m}})}s.deleteShader(S),s.deleteShader(C),x=new So(s,p),E=iw(s,p)}let x;this.getUniforms=function(){return x===void 0&&T(this),x};let E;this.getAttributes=function(){return E===void 0&&T(this),E};let B=t.rendererExtensionParallelShaderCompile===!1;return this.isReady=function(){return B===!1&&(B=s.getProgramParameter(p,YM)),B},this.destroy=function(){n.releaseStatesOfProgram(this),s.deleteProgram(p),this.program=void 0},this.type=t.shaderType,this.name=t.shaderName,this.id=$M++,this.cacheKey=e,this.usedTimes=1,this.program=p,this.vertexShader=S,this.fragmentShader=C,this}var mw=0,Wd=class{constructor(){this.shaderCache=new Map,this.materialCache=new Map}update(e,t,n){let s=this._getShaderCacheForMaterial(e);return s.has(t)===!1&&(s.add(t),t.usedTimes++),s.has(n)===!1&&(s.add(n),n.usedTimes++),this}remove(e){let t=this.materialCache.get(e);for(let n of t)n.usedTimes--,n.usedTimes===0&&this.shaderCache.delete(n.code);return this.materialCache.delete(e),this}getVertexShaderStage(e){return this._getShaderStage(e.vertexShader)}getFragmentShaderStage(e){return this._getShaderStage(e.fragmentShader)}dispose(){this.shaderCache.clear(),this.materialCache.clear()}_getShaderCacheForMaterial(e){let t=this.materialCache,n=t.get(e);return n===void 0&&(n=new Set,t.set(e,n)),n}_getShaderStage(e){let t=this.shaderCache,n=t.get(e);return n===void 0&&(n=new Xd(e),t.set(e,n)),n}},Xd=class{constructor(e){this.id=mw++,this.code=e,this.usedTimes=0}};function gw(i){return i===Vs||i===Ca||i===Pa}function _w(i,e,t,n,s,r){let o=new aa,a=new Wd,l=new Set,c=[],h=new Map,u=n.logarithmicDepthBuffer,d={MeshDepthMaterial:"depth",MeshDistanceMaterial:"distance",MeshNormalMaterial:"normal",MeshBasicMaterial:"basic",MeshLambertMaterial:"lambert",MeshPhongMaterial:"phong",MeshToonMaterial:"toon",MeshStandardMaterial:"physical",MeshPhysicalMaterial:"physical",MeshMatcapMaterial:"matcap",LineBasicMaterial:"basic",LineDashedMaterial:"dashed",PointsMaterial:"points",ShadowMaterial:"shadow",SpriteMaterial:"sprite"};function f(x){return l.add(x),x===0?"uv":`uv${x}`}function p(x,E,B,N,D,G){let V=N.fog,I=D.geometry,W=x.isMeshStandardMaterial||x.isMeshLambertMaterial||x.isMeshPhongMaterial?N.environment:null,$=x.isMeshStandardMaterial||x.isMeshLambertMaterial&&!x.envMap||x.isMeshPhongMaterial&&!x.envMap,z=e.get(x.envMap||W,$),ce=d[x.type],K=n.precision;x.precision!==null&&(K=n.getMaxPrecision(x.precision),K!==x.precision&&$e("WebGLProgram.getParameters:",x.precision,"not supported, using",K,"instead."));let ee=I.morphAttributes.position||I.morphAttributes.normal||I.morphAttributes.color,re=ee!==void 0?ee.length:0,fe=0;I.morphAttributes.position!==void 0&&(fe=1),I.morphAttributes.normal!==void 0&&(fe=2),I.morphAttributes.color!==void 0&&(fe=3);let de,te,ge,ve;if(ce){let Ce=Zi[ce];de=Ce.vertexShader,te=Ce.fragmentShader}else{de=x.vertexShader,te=x.fragmentShader;let Ce=a.getVertexShaderStage(x),ot=a.getFragmentShaderStage(x);a.update(x,Ce,ot),ge=Ce.id,ve=ot.id}let Re=i.getRenderTarget(),Me=i.state.buffers.depth.getReversed(),Xe=D.isInstancedMesh===!0,st=D.isBatchedMesh===!0,Ge=!!x.map,ut=!!x.matcap,at=!!z,nt=at&&z.isPMREMTexture===!0,Wt=!!x.aoMap,Ft=!!x.lightMap,nn=!!x.bumpMap&&x.wireframe===!1,Pt=!!x.normalMap,bn=!!x.displacementMap,vt=!!x.emissiveMap,fn=!!x.metalnessMap,$t=!!x.roughnessMap,sn=x.anisotropy>0,O=x.clearcoat>0,Pe=x.diffuseRoughness>0,Ze=x.dispersion>0,rt=x.retroreflectivity>0,we=x.iridescence>0,Lt=x.sheen>0,Ve=x.transmission>0,Ye=sn&&!!x.anisotropyMap,R=O&&!!x.clearcoatMap,b=O&&!!x.clearcoatNormalMap,q=O&&!!x.clearcoatRoughnessMap,ue=Pe&&!!x.diffuseRoughnessMap,ae=we&&!!x.iridescenceMap,xe=we&&!!x.iridescenceThicknessMap,ye=Lt&&!!x.sheenColorMap,ne=Lt&&!!x.sheenRoughnessMap,se=!!x.specularMap,me=!!x.specularColorMap,U=!!x.specularIntensityMap,oe=Ve&&!!x.transmissionMap,ie=Ve&&!!x.thicknessMap,Ee=!!x.gradientMap,_e=!!x.alphaMap,Se=x.alphaTest>0,We=!!x.alphaHash,Je=!!x.extensions,he=Yi;x.toneMapped&&(Re===null||Re.isXRRenderTarget===!0)&&(he=i.toneMapping);let Be=nt?z.isCompressedCubeTexture?z.image[0].mipmaps:z.mipmaps:null,je={shaderID:ce,shaderType:x.type,shaderName:x.name,vertexShader:de,fragmentShader:te,defines:x.defines,customVertexShaderID:ge,customFragmentShaderID:ve,isRawShaderMaterial:x.isRawShaderMaterial===!0,glslVersion:x.glslVersion,precision:K,batching:st,batchingColor:st&&D._colorsTexture!==null,instancing:Xe,instancingColor:Xe&&D.instanceColor!==null,instancingMorph:Xe&&D.morphTexture!==null,outputColorSpace:Re===null?i.outputColorSpace:Re.isXRRenderTarget===!0?Re.texture.colorSpace:pt.workingColorSpace,alphaToCoverage:!!x.alphaToCoverage,map:Ge,matcap:ut,envMap:at,envMapMode:at&&z.mapping,envMapPMREM:nt,envMapMaxLod:nt?Be.length-1:null,envMapSize:nt?Be[0].width:null,aoMap:Wt,lightMap:Ft,bumpMap:nn,normalMap:Pt,displacementMap:bn,emissiveMap:vt,normalMapObjectSpace:Pt&&x.normalMapType===ug,normalMapTangentSpace:Pt&&x.normalMapType===yd,packedNormalMap:Pt&&x.normalMapType===yd&&gw(x.normalMap.format),metalnessMap:fn,roughnessMap:$t,anisotropy:sn,anisotropyMap:Ye,clearcoat:O,clearcoatMap:R,clearcoatNormalMap:b,clearcoatRoughnessMap:q,diffuseRoughness:Pe,diffuseRoughnessMap:ue,dispersion:Ze,retroreflection:rt,iridescence:we,iridescenceMap:ae,iridescenceThicknessMap:xe,sheen:Lt,sheenColorMap:ye,sheenRoughnessMap:ne,specularMap:se,specularColorMap:me,specularIntensityMap:U,transmission:Ve,transmissionMap:oe,thicknessMap:ie,gradientMap:Ee,opaque:x.transparent===!1&&x.blending===_o&&x.alphaToCoverage===!1,alphaMap:_e,alphaTest:Se,alphaHash:We,combine:x.combine,mapUv:Ge&&f(x.map.channel),aoMapUv:Wt&&f(x.aoMap.channel),lightMapUv:Ft&&f(x.lightMap.channel),bumpMapUv:nn&&f(x.bumpMap.channel),normalMapUv:Pt&&f(x.normalMap.channel),displacementMapUv:bn&&f(x.displacementMap.channel),emissiveMapUv:vt&&f(x.emissiveMap.channel),metalnessMapUv:fn&&f(x.metalnessMap.channel),roughnessMapUv:$t&&f(x.roughnessMap.channel),anisotropyMapUv:Ye&&f(x.anisotropyMap.channel),clearcoatMapUv:R&&f(x.clearcoatMap.channel),clearcoatNormalMapUv:b&&f(x.clearcoatNormalMap.channel),clearcoatRoughnessMapUv:q&&f(x.clearcoatRoughnessMap.channel),diffuseRoughnessMapUv:ue&&f(x.diffuseRoughnessMap.channel),iridescenceMapUv:ae&&f(x.iridescenceMap.channel),iridescenceThicknessMapUv:xe&&f(x.iridescenceThicknessMap.channel),sheenColorMapUv:ye&&f(x.sheenColorMap.channel),sheenRoughnessMapUv:ne&&f(x.sheenRoughnessMap.channel),specularMapUv:se&&f(x.specularMap.channel),specularColorMapUv:me&&f(x.specularColorMap.channel),specularIntensityMapUv:U&&f(x.specularIntensityMap.channel),transmissionMapUv:oe&&f(x.transmissionMap.channel),thicknessMapUv:ie&&f(x.thicknessMap.channel),alphaMapUv:_e&&f(x.alphaMap.channel),vertexTangents:!!I.attributes.tangent&&(Pt||sn),vertexNormals:!!I.attributes.normal,vertexColors:x.vertexColors,vertexAlphas:x.vertexColors===!0&&!!I.attributes.color&&I.attributes.color.itemSize===4,pointsUvs:D.isPoints===!0&&!!I.attributes.uv&&(Ge||_e),fog:!!V,useFog:x.fog===!0,fogExp2:!!V&&V.isFogExp2,flatShading:x.wireframe===!1&&(x.flatShading===!0||I.attributes.normal===void 0&&Pt===!1&&(x.isMeshLambertMaterial||x.isMeshPhongMaterial||x.isMeshStandardMaterial||x.isMeshPhysicalMaterial)),sizeAttenuation:x.sizeAttenuation===!0,logarithmicDepthBuffer:u,reversedDepthBuffer:Me,skinning:D.isSkinnedMesh===!0,hasPositionAttribute:I.attributes.position!==void 0,morphTargets:I.morphAttributes.position!==void 0,morphNormals:I.morphAttributes.normal!==void 0,morphColors:I.morphAttributes.color!==void 0,morphTargetsCount:re,morphTextureStride:fe,numSunLights:E.sun.length,numDirLights:E.directional.length,numPointLights:E.point.length,numSpotLights:E.spot.length,numSpotLightMaps:E.spotLightMap.length,numRectAreaLights:E.rectArea.length,numHemiLights:E.hemi.length,numSunLightShadows:E.sunShadowMap.length,numDirLightShadows:E.directionalShadowMap.length,numPointLightShadows:E.pointShadowMap.length,numSpotLightShadows:E.spotShadowMap.length,numSpotLightShadowsWithMaps:E.numSpotLightShadowsWithMaps,numLightProbes:E.numLightProbes,numLightProbeGrids:G.filter(Ce=>Ce.texture!==null).length,numClippingPlanes:r.numPlanes,numClipIntersection:r.numIntersection,dithering:x.dithering,shadowMapEnabled:i.shadowMap.enabled&&B.length>0,shadowMapType:i.shadowMap.type,toneMapping:he,decodeVideoTexture:Ge&&x.map.isVideoTexture===!0&&pt.getTransfer(x.map.colorSpace)===Tt,decodeVideoTextureEmissive:vt&&x.emissiveMap.isVideoTexture===!0&&pt.getTransfer(x.emissiveMap.colorSpace)===Tt,premultipliedAlpha:x.premultipliedAlpha,doubleSided:x.side===ci,flipSided:x.side===Wn,useDepthPacking:x.depthPacking>=0,depthPacking:x.depthPacking||0,index0AttributeName:x.index0AttributeName,extensionClipCullDistance:Je&&x.extensions.clipCullDistance===!0&&t.has("WEBGL_clip_cull_distance"),extensionMultiDraw:(Je&&x.extensions.multiDraw===!0||st)&&t.has("WEBGL_multi_draw"),rendererExtensionParallelShaderCompile:t.has("KHR_parallel_shader_compile"),customProgramCacheKey:x.customProgramCacheKey()};return je.vertexUv1s=l.has(1),je.vertexUv2s=l.has(2),je.vertexUv3s=l.has(3),l.clear(),je}function y(x){let E=[];if(x.shaderID?E.push(x.shaderID):(E.push(x.customVertexShaderID),E.push(x.customFragmentShaderID)),x.defines!==void 0)for(let B in x.defines)E.push(B),E.push(x.defines[B]);return x.isRawShaderMaterial===!1&&(m(E,x),g(E,x),E.push(i.outputColorSpace)),E.push(x.customProgramCacheKey),E.join()}function m(x,E){x.push(E.precision),x.push(E.outputColorSpace),x.push(E.envMapMode),x.push(E.envMapPMREM),x.push(E.envMapMaxLod),x.push(E.envMapSize),x.push(E.mapUv),x.push(E.alphaMapUv),x.push(E.lightMapUv),x.push(E.aoMapUv),x.push(E.bumpMapUv),x.push(E.normalMapUv),x.push(E.displacementMapUv),x.push(E.emissiveMapUv),x.push(E.metalnessMapUv),x.push(E.roughnessMapUv),x.push(E.anisotropyMapUv),x.push(E.clearcoatMapUv),x.push(E.clearcoatNormalMapUv),x.push(E.clearcoatRoughnessMapUv),x.push(E.diffuseRoughnessMapUv),x.push(E.iridescenceMapUv),x.push(E.iridescenceThicknessMapUv),x.push(E.sheenColorMapUv),x.push(E.sheenRoughnessMapUv),x.push(E.specularMapUv),x.push(E.specularColorMapUv),x.push(E.specularIntensityMapUv),x.push(E.transmissionMapUv),x.push(E.thicknessMapUv),x.push(E.combine),x.push(E.fogExp2),x.push(E.sizeAttenuation),x.push(E.morphTargetsCount),x.push(E.numSunLights),x.push(E.numDirLights),x.push(E.numPointLights),x.push(E.numSpotLights),x.push(E.numSpotLightMaps),x.push(E.numHemiLights),x.push(E.numRectAreaLights),x.push(E.numSunLightShadows),x.push(E.numDirLightShadows),x.push(E.numPointLightShadows),x.push(E.numSpotLightShadows),x.push(E.numSpotLightShadowsWithMaps),x.push(E.numLightProbes),x.push(E.numLightProbeGrids),x.push(E.shadowMapType),x.push(E.toneMapping),x.push(E.numClippingPlanes),x.push(E.numClipIntersection),x.push(E.depthPacking)}function g(x,E){o.disableAll(),E.instancing&&o.enable(0),E.instancingColor&&o.enable(1),E.instancingMorph&&o.enable(2),E.matcap&&o.enable(3),E.envMap&&o.enable(4),E.normalMapObjectSpace&&o.enable(5),E.normalMapTangentSpace&&o.enable(6),E.clearcoat&&o.enable(7),E.iridescence&&o.enable(8),E.alphaTest&&o.enable(9),E.vertexColors&&o.enable(10),E.vertexAlphas&&o.enable(11),E.vertexUv1s&&o.enable(12),E.vertexUv2s&&o.enable(13),E.vertexUv3s&&o.enable(14),E.vertexTangents&&o.enable(15),E.anisotropy&&o.enable(16),E.alphaHash&&o.enable(17),E.batching&&o.enable(18),E.dispersion&&o.enable(19),E.retroreflection&&o.enable(24),E.diffuseRoughness&&o.enable(25),E.batchingColor&&o.enable(20),E.gradientMap&&o.enable(21),E.packedNormalMap&&o.enable(22),E.vertexNormals&&o.enable(23),x.push(o.mask),o.disableAll(),E.fog&&o.enable(0),E.useFog&&o.enable(1),E.flatShading&&o.enable(2),E.logarithmicDepthBuffer&&o.enable(3),E.reversedDepthBuffer&&o.enable(4),E.skinning&&o.enable(5),E.morphTargets&&o.enable(6),E.morphNormals&&o.enable(7),E.morphColors&&o.enable(8),E.premultipliedAlpha&&o.enable(9),E.shadowMapEnabled&&o.enable(10),E.doubleSided&&o.enable(11),E.flipSided&&o.enable(12),E.useDepthPacking&&o.enable(13),E.dithering&&o.enable(14),E.transmission&&o.enable(15),E.sheen&&o.enable(16),E.opaque&&o.enable(17),E.pointsUvs&&o.enable(18),E.decodeVideoTexture&&o.enable(19),E.decodeVideoTextureEmissive&&o.enable(20),E.alphaToCoverage&&o.enable(21),E.numLightProbeGrids>0&&o.enable(22),E.hasPositionAttribute&&o.enable(23),x.push(o.mask)}function v(x){let E=d[x.type],B;if(E){let N=Zi[E];B=Tg.clone(N.uniforms)}else B=x.uniforms;return B}function A(x,E){let B=h.get(E);return B!==void 0?++B.usedTimes:(B=new pw(i,E,x,s),c.push(B),h.set(E,B)),B}function S(x){if(--x.usedTimes===0){let E=c.indexOf(x);c[E]=c[c.length-1],c.pop(),h.delete(x.cacheKey),x.destroy()}}function C(x){a.remove(x)}function T(){a.dispose()}return{getParameters:p,getProgramCacheKey:y,getUniforms:v,acquireProgram:A,releaseProgram:S,releaseShaderCache:C,programs:c,dispose:T}}function xw(){let i=new WeakMap;function e(o){return i.has(o)}function t(o){let a=i.get(o);return a===void 0&&(a={},i.set(o,a)),a}function n(o){i.delete(o)}function s(o,a,l){i.get(o)[a]=l}function r(){i=new WeakMap}return{has:e,get:t,remove:n,update:s,dispose:r}}function vw(i,e){return i.groupOrder!==e.groupOrder?i.groupOrder-e.groupOrder:i.renderOrder!==e.renderOrder?i.renderOrder-e.renderOrder:i.material.id!==e.material.id?i.material.id-e.material.id:i.materialVariant!==e.materialVariant?i.materialVariant-e.materialVariant:i.z!==e.z?i.z-e.z:i.id-e.id}function qg(i,e){return i.groupOrder!==e.groupOrder?i.groupOrder-e.groupOrder:i.renderOrder!==e.renderOrder?i.renderOrder-e.renderOrder:i.z!==e.z?e.z-i.z:i.id-e.id}function Yg(){let i=[],e=0,t=[],n=[],s=[];function r(){e=0,t.length=0,n.length=0,s.length=0}function o(d){let f=0;return d.isInstancedMesh&&(f+=2),d.isSkinnedMesh&&(f+=1),f}function a(d,f,p,y,m,g){let v=i[e];return v===void 0?(v={id:d.id,object:d,geometry:f,material:p,materialVariant:o(d),groupOrder:y,renderOrder:d.renderOrder,z:m,group:g},i[e]=v):(v.id=d.id,v.object=d,v.geometry=f,v.material=p,v.materialVariant=o(d),v.groupOrder=y,v.renderOrder=d.renderOrder,v.z=m,v.group=g),e++,v}function l(d,f,p,y,m,g,v){v.reversedDepth===!0&&(m=-m);let A=a(d,f,p,y,m,g);p.transmission>0?n.push(A):p.transparent===!0?s.push(A):t.push(A)}function c(d,f,p,y,m,g){let v=a(d,f,p,y,m,g);p.transmission>0?n.unshift(v):p.transparent===!0?s.unshift(v):t.unshift(v)}function h(d,f){t.length>1&&t.sort(d||vw),n.length>1&&n.sort(f||qg),s.length>1&&s.sort(f||qg)}function u(){for(let d=e,f=i.length;d<f;d++){let p=i[d];if(p.id===null)break;p.id=null,p.object=null,p.geometry=null,p.material=null,p.group=null}}return{opaque:t,transmissive:n,transparent:s,init:r,push:l,unshift:c,finish:u,sort:h}}function yw(){let i=new WeakMap;function e(n,s){let r=i.get(n),o;return r===void 0?(o=new Yg,i.set(n,[o])):s>=r.length?(o=new Yg,r.push(o)):o=r[s],o}function t(){i=new WeakMap}return{get:e,dispose:t}}function bw(){let i={};return{get:function(e){if(i[e.id]!==void 0)return i[e.id];let t;switch(e.type){case"SunLight":case"DirectionalLight":t={direction:new F,color:new gt};break;case"SpotLight":t={position:new F,direction:new F,color:new gt,distance:0,coneCos:0,penumbraCos:0,decay:0};break;case"PointLight":t={position:new F,color:new gt,distance:0,decay:0};break;case"HemisphereLight":t={direction:new F,skyColor:new gt,groundColor:new gt};break;case"RectAreaLight":t={color:new gt,position:new F,halfWidth:new F,halfHeight:new F};break}return i[e.id]=t,t}}}function Sw(){let i={};return{get:function(e){if(i[e.id]!==void 0)return i[e.id];let t;switch(e.type){case"SunLight":case"DirectionalLight":t={shadowIntensity:1,shadowBias:0,shadowNormalBias:0,shadowRadius:1,shadowMapSize:new ze};break;case"SpotLight":t={shadowIntensity:1,shadowBias:0,shadowNormalBias:0,shadowRadius:1,shadowMapSize:new ze};break;case"PointLight":t={shadowIntensity:1,shadowBias:0,shadowNormalBias:0,shadowRadius:1,shadowMapSize:new ze,shadowCameraNear:1,shadowCameraFar:1e3};break}return i[e.id]=t,t}}}var Mw=0;function ww(i,e){return(e.castShadow?2:0)-(i.castShadow?2:0)+(e.map?1:0)-(i.map?1:0)}function Ew(i){let e=new bw,t=Sw(),n={version:0,hash:{sunLength:-1,directionalLength:-1,pointLength:-1,spotLength:-1,rectAreaLength:-1,hemiLength:-1,numSunShadows:-1,numDirectionalShadows:-1,numPointShadows:-1,numSpotShadows:-1,numSpotMaps:-1,numLightProbes:-1},ambient:[0,0,0],probe:[],sun:[],sunShadow:[],sunShadowMap:[],sunShadowMatrix:[],sunShadowCascade:[],directional:[],directionalShadow:[],directionalShadowMap:[],directionalShadowMatrix:[],spot:[],spotLightMap:[],spotShadow:[],spotShadowMap:[],spotLightMatrix:[],rectArea:[],rectAreaLTC1:null,rectAreaLTC2:null,point:[],pointShadow:[],pointShadowMap:[],pointShadowMatrix:[],hemi:[],numSpotLightShadowsWithMaps:0,numLightProbes:0};for(let c=0;c<9;c++)n.probe.push(new F);let s=new F,r=new Ut,o=new Ut;function a(c){let h=0,u=0,d=0;for(let G=0;G<9;G++)n.probe[G].set(0,0,0);let f=0,p=0,y=0,m=0,g=0,v=0,A=0,S=0,C=0,T=0,x=0,E=0,B=0,N=0;c.sort(ww);for(let G=0,V=c.length;G<V;G++){let I=c[G],W=I.color,$=I.intensity,z=I.distance,ce=null;if(I.shadow&&I.shadow.map&&(I.shadow.map.texture.format===Vs?ce=I.shadow.map.texture:ce=I.shadow.map.depthTexture||I.shadow.map.texture),I.isAmbientLight)h+=W.r*$,u+=W.g*$,d+=W.b*$;else if(I.isLightProbe){for(let K=0;K<9;K++)n.probe[K].addScaledVector(I.sh.coefficients[K],$);N++}else if(I.isSunLight){let K=e.get(I);if(K.color.copy(I.color).multiplyScalar(I.intensity),I.castShadow){let ee=I.shadow,re=t.get(I);re.shadowIntensity=ee.intensity,re.shadowBias=ee.bias,re.shadowNormalBias=ee.normalBias,re.shadowRadius=ee.radius,re.shadowMapSize.copy(ee.mapSize).multiply(ee.getFrameExtents()),n.sunShadow[p]=re,n.sunShadowMap[p]=ce;let fe=ee.getViewportCount();for(let de=0;de<fe;de++)n.sunShadowMatrix[y+de]=ee.getMatrix(de),n.sunShadowCascade[y+de]=ee._cascadeData[de];y+=fe,p++}n.sun[f]=K,f++}else if(I.isDirectionalLight){let K=e.get(I);if(K.color.copy(I.color).multiplyScalar(I.intensity),I.castShadow){let ee=I.shadow,re=t.get(I);re.shadowIntensity=ee.intensity,re.shadowBias=ee.bias,re.shadowNormalBias=ee.normalBias,re.shadowRadius=ee.radius,re.shadowMapSize=ee.mapSize,n.directionalShadow[m]=re,n.directionalShadowMap[m]=ce,n.directionalShadowMatrix[m]=I.shadow.matrix,C++}n.directional[m]=K,m++}else if(I.isSpotLight){let K=e.get(I);K.position.setFromMatrixPosition(I.matrixWorld),K.color.copy(W).multiplyScalar($),K.distance=z,K.coneCos=Math.cos(I.angle),K.penumbraCos=Math.cos(I.angle*(1-I.penumbra)),K.decay=I.decay,n.spot[v]=K;let ee=I.shadow;if(I.map&&(n.spotLightMap[E]=I.map,E++,ee.updateMatrices(I),I.castShadow&&B++),n.spotLightMatrix[v]=ee.matrix,I.castShadow){let re=t.get(I);re.shadowIntensity=ee.intensity,re.shadowBias=ee.bias,re.shadowNormalBias=ee.normalBias,re.shadowRadius=ee.radius,re.shadowMapSize=ee.mapSize,n.spotShadow[v]=re,n.spotShadowMap[v]=ce,x++}v++}else if(I.isRectAreaLight){let K=e.get(I);K.color.copy(W).multiplyScalar($),K.halfWidth.set(I.width*.5,0,0),K.halfHeight.set(0,I.height*.5,0),n.rectArea[A]=K,A++}else if(I.isPointLight){let K=e.get(I);if(K.color.copy(I.color).multiplyScalar(I.intensity),K.distance=I.distance,K.decay=I.decay,I.castShadow){let ee=I.shadow,re=t.get(I);re.shadowIntensity=ee.intensity,re.shadowBias=ee.bias,re.shadowNormalBias=ee.normalBias,re.shadowRadius=ee.radius,re.shadowMapSize=ee.mapSize,re.shadowCameraNear=ee.camera.near,re.shadowCameraFar=ee.camera.far,n.pointShadow[g]=re,n.pointShadowMap[g]=ce,n.pointShadowMatrix[g]=I.shadow.matrix,T++}n.point[g]=K,g++}else if(I.isHemisphereLight){let K=e.get(I);K.skyColor.copy(I.color).multiplyScalar($),K.groundColor.copy(I.groundColor).multiplyScalar($),n.hemi[S]=K,S++}}A>0&&(i.has("OES_texture_float_linear")===!0?(n.rectAreaLTC1=De.LTC_FLOAT_1,n.rectAreaLTC2=De.LTC_FLOAT_2):(n.rectAreaLTC1=De.LTC_HALF_1,n.rectAreaLTC2=De.LTC_HALF_2)),n.ambient[0]=h,n.ambient[1]=u,n.ambient[2]=d;let D=n.hash;(D.sunLength!==f||D.directionalLength!==m||D.pointLength!==g||D.spotLength!==v||D.rectAreaLength!==A||D.hemiLength!==S||D.numSunShadows!==p||D.numDirectionalShadows!==C||D.numPointShadows!==T||D.numSpotShadows!==x||D.numSpotMaps!==E||D.numLightProbes!==N)&&(n.sun.length=f,n.directional.length=m,n.spot.length=v,n.rectArea.length=A,n.point.length=g,n.hemi.length=S,n.sunShadow.length=p,n.sunShadowMap.length=p,n.sunShadowMatrix.length=y,n.sunShadowCascade.length=y,n.directionalShadow.length=C,n.directionalShadowMap.length=C,n.directionalShadowMatrix.length=C,n.pointShadow.length=T,n.pointShadowMap.length=T,n.pointShadowMatrix.length=T,n.spotShadow.length=x,n.spotShadowMap.length=x,n.spotLightMatrix.length=x+E-B,n.spotLightMap.length=E,n.numSpotLightShadowsWithMaps=B,n.numLightProbes=N,D.sunLength=f,D.directionalLength=m,D.pointLength=g,D.spotLength=v,D.rectAreaLength=A,D.hemiLength=S,D.numSunShadows=p,D.numDirectionalShadows=C,D.numPointShadows=T,D.numSpotShadows=x,D.numSpotMaps=E,D.numLightProbes=N,n.version=Mw++)}function l(c,h){let u=0,d=0,f=0,p=0,y=0,m=0,g=h.matrixWorldInverse;for(let v=0,A=c.length;v<A;v++){let S=c[v];if(S.isSunLight){let C=n.sun[u];C.direction.setFromMatrixPosition(S.matrixWorld),C.direction.transformDirection(g),u++}else if(S.isDirectionalLight){let C=n.directional[d];C.direction.setFromMatrixPosition(S.matrixWorld),s.setFromMatrixPosition(S.target.matrixWorld),C.direction.sub(s),C.direction.transformDirection(g),d++}else if(S.isSpotLight){let C=n.spot[p];C.position.setFromMatrixPosition(S.matrixWorld),C.position.applyMatrix4(g),C.direction.setFromMatrixPosition(S.matrixWorld),s.setFromMatrixPosition(S.target.matrixWorld),C.direction.sub(s),C.direction.transformDirection(g),p++}else if(S.isRectAreaLight){let C=n.rectArea[y];C.position.setFromMatrixPosition(S.matrixWorld),C.position.applyMatrix4(g),o.identity(),r.copy(S.matrixWorld),r.premultiply(g),o.extractRotation(r),C.halfWidth.set(S.width*.5,0,0),C.halfHeight.set(0,S.height*.5,0),C.halfWidth.applyMatrix4(o),C.halfHeight.applyMatrix4(o),y++}else if(S.isPointLight){let C=n.point[f];C.position.setFromMatrixPosition(S.matrixWorld),C.position.applyMatrix4(g),f++}else if(S.isHemisphereLight){let C=n.hemi[m];C.direction.setFromMatrixPosition(S.matrixWorld),C.direction.transformDirection(g),m++}}}return{setup:a,setupView:l,state:n}}function $g(i){let e=new Ew(i),t=[],n=[],s=[];function r(u){h.camera=u,t.length=0,n.length=0,s.length=0}function o(u){u.isLightProbeGrid?s.push(u):t.push(u)}function a(u){n.push(u)}function l(){e.setup(t),s.sort((u,d)=>u.priority-d.priority||u.id-d.id)}function c(u){e.setupView(t,u)}let h={lightsArray:t,shadowsArray:n,lightProbeGridArray:s,camera:null,lights:e,transmissionRenderTarget:{},textureUnits:0};return{init:r,state:h,setupLights:l,setupLightsView:c,pushLight:o,pushShadow:a}}function Tw(i){let e=new WeakMap;function t(s,r=0){let o=e.get(s),a;return o===void 0?(a=new $g(i),e.set(s,[a])):r>=o.length?(a=new $g(i),o.push(a)):a=o[r],a}function n(){e=new WeakMap}return{get:t,dispose:n}}var Aw=`void main() {
	gl_Position = vec4( position, 1.0 );
}`,Rw=`uniform sampler2D shadow_pass;
uniform vec2 resolution;
uniform float radius;
void main() {
	const float samples = float( VSM_SAMPLES );
	float mean = 0.0;
	float squared_mean = 0.0;
	float uvStride = samples <= 1.0 ? 0.0 : 2.0 / ( samples - 1.0 );
	float uvStart = samples <= 1.0 ? 0.0 : - 1.0;
	for ( float i = 0.0; i < samples; i ++ ) {
		float uvOffset = uvStart + i * uvStride;
		#ifdef HORIZONTAL_PASS
			vec2 distribution = texture2D( shadow_pass, ( gl_FragCoord.xy + vec2( uvOffset, 0.0 ) * radius ) / resolution ).rg;
			mean += distribution.x;
			squared_mean += distribution.y * distribution.y + distribution.x * distribution.x;
		#else
			float depth = texture2D( shadow_pass, ( gl_FragCoord.xy + vec2( 0.0, uvOffset ) * radius ) / resolution ).r;
			mean += depth;
			squared_mean += depth * depth;
		#endif
	}
	mean = mean / samples;
	squared_mean = squared_mean / samples;
	float std_dev = sqrt( max( 0.0, squared_mean - mean * mean ) );
	gl_FragColor = vec4( mean, std_dev, 0.0, 1.0 );
}`,Cw=[new F(1,0,0),new F(-1,0,0),new F(0,1,0),new F(0,-1,0),new F(0,0,1),new F(0,0,-1)],Pw=[new F(0,-1,0),new F(0,-1,0),new F(0,0,1),new F(0,0,-1),new F(0,-1,0),new F(0,-1,0)],Zg=new Ut,Da=new F,kd=new F;function Iw(i,e,t){let n=new ur,s=new ze,r=new ze,o=new Ot,a=new gc,l=new _c,c={},h=t.maxTextureSize,u={[qi]:Wn,[Wn]:qi,[ci]:ci},d=new xi({defines:{VSM_SAMPLES:8},uniforms:{shadow_pass:{value:null},resolution:{value:new ze},radius:{value:4}},vertexShader:Aw,fragmentShader:Rw}),f=d.clone();f.defines.HORIZONTAL_PASS=1;let p=new tn;p.setAttribute("position",new qt(new Float32Array([-1,-1,.5,3,-1,.5,-1,3,.5]),3));let y=new dn(p,d),m=this;this.enabled=!1,this.autoUpdate=!0,this.needsUpdate=!1,this.type=Ma;let g=this.type;this.render=function(T,x,E){if(m.enabled===!1||m.autoUpdate===!1&&m.needsUpdate===!1||T.length===0)return;this.type===Vm&&($e("WebGLShadowMap: PCFSoftShadowMap has been removed. Using PCFShadowMap instead."),this.type=Ma);let B=i.getRenderTarget(),N=i.getActiveCubeFace(),D=i.getActiveMipmapLevel(),G=i.state;G.setBlending(mr),G.buffers.depth.getReversed()===!0?G.buffers.color.setClear(0,0,0,0):G.buffers.color.setClear(1,1,1,1),G.buffers.depth.setTest(!0),G.setScissorTest(!1);let V=g!==this.type;V&&x.traverse(function(I){I.material&&(Array.isArray(I.material)?I.material.forEach(W=>W.needsUpdate=!0):I.material.needsUpdate=!0)});for(let I=0,W=T.length;I<W;I++){let $=T[I],z=$.shadow;if(z===void 0){$e("WebGLShadowMap:",$,"has no shadow.");continue}if(z.autoUpdate===!1&&z.needsUpdate===!1)continue;s.copy(z.mapSize);let ce=z.getFrameExtents();s.multiply(ce),r.copy(z.mapSize),(s.x>h||s.y>h)&&(s.x>h&&(r.x=Math.floor(h/ce.x),s.x=r.x*ce.x,z.mapSize.x=r.x),s.y>h&&(r.y=Math.floor(h/ce.y),s.y=r.y*ce.y,z.mapSize.y=r.y));let K=i.state.buffers.depth.getReversed();if(z.camera._reversedDepth=K,z.map===null||V===!0){if(z.map!==null&&(z.map.depthTexture!==null&&(z.map.depthTexture.dispose(),z.map.depthTexture=null),z.map.dispose()),this.type===go){if($.isPointLight){$e("WebGLShadowMap: VSM shadow maps are not supported for PointLights. Use PCF or BasicShadowMap instead.");continue}z.map=new Pn(s.x,s.y,{format:Vs,type:Li,minFilter:Rn,magFilter:Rn,generateMipmaps:!1}),z.map.texture.name=$.name+".shadowMap",z.map.depthTexture=new Pi(s.x,s.y,Ii),z.map.depthTexture.name=$.name+".shadowMapDepth",z.map.depthTexture.format=us,z.map.depthTexture.compareFunction=null,z.map.depthTexture.minFilter=An,z.map.depthTexture.magFilter=An}else $.isPointLight?(z.map=new Ua(s.x),z.map.depthTexture=new pa(s.x,hi)):(z.map=new Pn(s.x,s.y),z.map.depthTexture=new Pi(s.x,s.y,hi)),z.map.depthTexture.name=$.name+".shadowMap",z.map.depthTexture.format=us,this.type===Ma?(z.map.depthTexture.compareFunction=K?bd:Ia,z.map.depthTexture.minFilter=Rn,z.map.depthTexture.magFilter=Rn):(z.map.depthTexture.compareFunction=null,z.map.depthTexture.minFilter=An,z.map.depthTexture.magFilter=An);z.camera.updateProjectionMatrix()}z.map.isWebGLCubeRenderTarget!==!0&&(z.map.width!==s.x||z.map.height!==s.y)&&z.map.setSize(s.x,s.y);let ee=z.map.isWebGLCubeRenderTarget?6:z.getViewportCount();$.isPointLight!==!0&&z.updateMatrices($,E);let re=(z.camera.layers.mask&4294967294)!==0?z.camera.layers:E.layers;for(let fe=0;fe<ee;fe++){let de=z.getCamera(fe);if($.isPointLight){let te=z.camera,ge=z.matrix,ve=$.distance||te.far;ve!==te.far&&(te.far=ve,te.updateProjectionMatrix()),Da.setFromMatrixPosition($.matrixWorld),te.position.copy(Da),kd.copy(te.position),kd.add(Cw[fe]),te.up.copy(Pw[fe]),te.lookAt(kd),te.updateMatrixWorld(),ge.makeTranslation(-Da.x,-Da.y,-Da.z),Zg.multiplyMatrices(te.projectionMatrix,te.matrixWorldInverse),z._frustum.setFromProjectionMatrix(Zg,te.coordinateSystem,te.reversedDepth)}if(z.map.isWebGLCubeRenderTarget)i.setRenderTarget(z.map,fe),i.clear();else{fe===0&&(i.setRenderTarget(z.map),i.clear());let te=z.getViewport(fe);o.set(r.x*te.x,r.y*te.y,r.x*te.z,r.y*te.w),G.viewport(o)}n=z.getFrustum(fe),S(x,E,de,$,re,this.type)}z.isPointLightShadow!==!0&&this.type===go&&v(z,E),z.needsUpdate=!1}g=this.type,m.needsUpdate=!1,i.setRenderTarget(B,N,D)};function v(T,x){let E=e.update(y);d.defines.VSM_SAMPLES!==T.blurSamples&&(d.defines.VSM_SAMPLES=T.blurSamples,f.defines.VSM_SAMPLES=T.blurSamples,d.needsUpdate=!0,f.needsUpdate=!0),T.mapPass===null?T.mapPass=new Pn(s.x,s.y,{format:Vs,type:Li}):(T.mapPass.width!==T.map.width||T.mapPass.height!==T.map.height)&&T.mapPass.setSize(T.map.width,T.map.height),d.uniforms.shadow_pass.value=T.map.depthTexture,d.uniforms.resolution.value.set(T.map.width,T.map.height),d.uniforms.radius.value=T.radius,i.setRenderTarget(T.mapPass),i.clear(),i.renderBufferDirect(x,null,E,d,y,null),f.uniforms.shadow_pass.value=T.mapPass.texture,f.uniforms.resolution.value.set(T.map.width,T.map.height),f.uniforms.radius.value=T.radius,i.setRenderTarget(T.map),i.clear(),i.renderBufferDirect(x,null,E,f,y,null)}function A(T,x,E,B){let N=null,D=E.isPointLight===!0?T.customDistanceMaterial:T.customDepthMaterial;if(D!==void 0)N=D;else if(N=E.isPointLight===!0?l:a,i.localClippingEnabled&&x.clipShadows===!0&&Array.isArray(x.clippingPlanes)&&x.clippingPlanes.length!==0||x.displacementMap&&x.displacementScale!==0||x.alphaMap&&x.alphaTest>0||x.map&&x.alphaTest>0||x.alphaToCoverage===!0){let G=N.uuid,V=x.uuid,I=c[G];I===void 0&&(I={},c[G]=I);let W=I[V];W===void 0&&(W=N.clone(),I[V]=W,x.addEventListener("dispose",C)),N=W}if(N.visible=x.visible,N.wireframe=x.wireframe,B===go?N.side=x.shadowSide!==null?x.shadowSide:x.side:N.side=x.shadowSide!==null?x.shadowSide:u[x.side],N.alphaMap=x.alphaMap,N.alphaTest=x.alphaToCoverage===!0?.5:x.alphaTest,N.map=x.map,N.clipShadows=x.clipShadows,N.clippingPlanes=x.clippingPlanes,N.clipIntersection=x.clipIntersection,N.displacementMap=x.displacementMap,N.displacementScale=x.displacementScale,N.displacementBias=x.displacementBias,N.wireframeLinewidth=x.wireframeLinewidth,N.linewidth=x.linewidth,E.isPointLight===!0&&N.isMeshDistanceMaterial===!0){let G=i.properties.get(N);G.light=E}return N}function S(T,x,E,B,N,D){if(T.visible===!1)return;if(T.layers.test(N)&&(T.isMesh||T.isLine||T.isPoints)&&(T.castShadow||T.receiveShadow&&D===go)&&(!T.frustumCulled||T.intersectsFrustum(n))){T.modelViewMatrix.multiplyMatrices(E.matrixWorldInverse,T.matrixWorld);let I=e.update(T),W=T.material;if(Array.isArray(W)){let $=I.groups;for(let z=0,ce=$.length;z<ce;z++){let K=$[z],ee=W[K.materialIndex];if(ee&&ee.visible){let re=A(T,ee,B,D);T.onBeforeShadow(i,T,x,E,I,re,K),i.renderBufferDirect(E,null,I,re,T,K),T.onAfterShadow(i,T,x,E,I,re,K)}}}else if(W.visible){let $=A(T,W,B,D);T.onBeforeShadow(i,T,x,E,I,$,null),i.renderBufferDirect(E,null,I,$,T,null),T.onAfterShadow(i,T,x,E,I,$,null)}}let V=T.children;for(let I=0,W=V.length;I<W;I++)S(V[I],x,E,B,N,D)}function C(T){T.target.removeEventListener("dispose",C);for(let E in c){let B=c[E],N=T.target.uuid;N in B&&(B[N].dispose(),delete B[N])}}}function Lw(i,e){function t(){let U=!1,oe=new Ot,ie=null,Ee=new Ot(0,0,0,0);return{setMask:function(_e){ie!==_e&&!U&&(i.colorMask(_e,_e,_e,_e),ie=_e)},setLocked:function(_e){U=_e},setClear:function(_e,Se,We,Je,he){he===!0&&(_e*=Je,Se*=Je,We*=Je),oe.set(_e,Se,We,Je),Ee.equals(oe)===!1&&(i.clearColor(_e,Se,We,Je),Ee.copy(oe))},reset:function(){U=!1,ie=null,Ee.set(-1,0,0,0)}}}function n(){let U=!1,oe=!1,ie=null,Ee=null,_e=null;return{setReversed:function(Se){if(oe!==Se){let We=e.get("EXT_clip_control");Se?We.clipControlEXT(We.LOWER_LEFT_EXT,We.ZERO_TO_ONE_EXT):We.clipControlEXT(We.LOWER_LEFT_EXT,We.NEGATIVE_ONE_TO_ONE_EXT),oe=Se;let Je=_e;_e=null,this.setClear(Je)}},getReversed:function(){return oe},setTest:function(Se){Se?Me(i.DEPTH_TEST):Xe(i.DEPTH_TEST)},setMask:function(Se){ie!==Se&&!U&&(i.depthMask(Se),ie=Se)},setFunc:function(Se){if(oe&&(Se=Sg[Se]),Ee!==Se){switch(Se){case Xl:i.depthFunc(i.NEVER);break;case ql:i.depthFunc(i.ALWAYS);break;case Yl:i.depthFunc(i.LESS);break;case ro:i.depthFunc(i.LEQUAL);break;case $l:i.depthFunc(i.EQUAL);break;case Zl:i.depthFunc(i.GEQUAL);break;case Kl:i.depthFunc(i.GREATER);break;case Jl:i.depthFunc(i.NOTEQUAL);break;default:i.depthFunc(i.LEQUAL)}Ee=Se}},setLocked:function(Se){U=Se},setClear:function(Se){_e!==Se&&(_e=Se,oe&&(Se=1-Se),i.clearDepth(Se))},reset:function(){U=!1,ie=null,Ee=null,_e=null,oe=!1}}}function s(){let U=!1,oe=null,ie=null,Ee=null,_e=null,Se=null,We=null,Je=null,he=null;return{setTest:function(Be){U||(Be?Me(i.STENCIL_TEST):Xe(i.STENCIL_TEST))},setMask:function(Be){oe!==Be&&!U&&(i.stencilMask(Be),oe=Be)},setFunc:function(Be,je,Ce){(ie!==Be||Ee!==je||_e!==Ce)&&(i.stencilFunc(Be,je,Ce),ie=Be,Ee=je,_e=Ce)},setOp:function(Be,je,Ce){(Se!==Be||We!==je||Je!==Ce)&&(i.stencilOp(Be,je,Ce),Se=Be,We=je,Je=Ce)},setLocked:function(Be){U=Be},setClear:function(Be){he!==Be&&(i.clearStencil(Be),he=Be)},reset:function(){U=!1,oe=null,ie=null,Ee=null,_e=null,Se=null,We=null,Je=null,he=null}}}let r=new t,o=new n,a=new s,l={},c=new WeakMap,h={},u={},d={},f=new WeakMap,p=[],y=null,m=!1,g=null,v=null,A=null,S=null,C=null,T=null,x=null,E=new gt(0,0,0),B=0,N=!1,D=null,G=null,V=null,I=null,W=null,$=i.getParameter(i.MAX_COMBINED_TEXTURE_IMAGE_UNITS),z=!1,ce=0,K=i.getParameter(i.VERSION);K.indexOf("WebGL")!==-1?(ce=parseFloat(/^WebGL (\d)/.exec(K)[1]),z=ce>=1):K.indexOf("OpenGL ES")!==-1&&(ce=parseFloat(/^OpenGL ES (\d)/.exec(K)[1]),z=ce>=2);let ee=null,re={},fe=i.getParameter(i.SCISSOR_BOX),de=i.getParameter(i.VIEWPORT),te=new Ot().fromArray(fe),ge=new Ot().fromArray(de);function ve(U,oe,ie,Ee){let _e=new Uint8Array(4),Se=i.createTexture();i.bindTexture(U,Se),i.texParameteri(U,i.TEXTURE_MIN_FILTER,i.NEAREST),i.texParameteri(U,i.TEXTURE_MAG_FILTER,i.NEAREST);for(let We=0;We<ie;We++)U===i.TEXTURE_3D||U===i.TEXTURE_2D_ARRAY?i.texImage3D(oe,0,i.RGBA,1,1,Ee,0,i.RGBA,i.UNSIGNED_BYTE,_e):i.texImage2D(oe+We,0,i.RGBA,1,1,0,i.RGBA,i.UNSIGNED_BYTE,_e);return Se}let Re={};Re[i.TEXTURE_2D]=ve(i.TEXTURE_2D,i.TEXTURE_2D,1),Re[i.TEXTURE_CUBE_MAP]=ve(i.TEXTURE_CUBE_MAP,i.TEXTURE_CUBE_MAP_POSITIVE_X,6),Re[i.TEXTURE_2D_ARRAY]=ve(i.TEXTURE_2D_ARRAY,i.TEXTURE_2D_ARRAY,1,1),Re[i.TEXTURE_3D]=ve(i.TEXTURE_3D,i.TEXTURE_3D,1,1),r.setClear(0,0,0,1),o.setClear(1),a.setClear(0),Me(i.DEPTH_TEST),o.setFunc(ro),nn(!1),Pt(ju),Me(i.CULL_FACE),Wt(mr);function Me(U){h[U]!==!0&&(i.enable(U),h[U]=!0)}function Xe(U){h[U]!==!1&&(i.disable(U),h[U]=!1)}function st(U,oe){return d[U]!==oe?(i.bindFramebuffer(U,oe),d[U]=oe,U===i.DRAW_FRAMEBUFFER&&(d[i.FRAMEBUFFER]=oe),U===i.FRAMEBUFFER&&(d[i.DRAW_FRAMEBUFFER]=oe),!0):!1}function Ge(U,oe){let ie=p,Ee=!1;if(U){ie=f.get(oe),ie===void 0&&(ie=[],f.set(oe,ie));let _e=U.textures;if(ie.length!==_e.length||ie[0]!==i.COLOR_ATTACHMENT0){for(let Se=0,We=_e.length;Se<We;Se++)ie[Se]=i.COLOR_ATTACHMENT0+Se;ie.length=_e.length,Ee=!0}}else ie[0]!==i.BACK&&(ie[0]=i.BACK,Ee=!0);Ee&&i.drawBuffers(ie)}function ut(U){return y!==U?(i.useProgram(U),y=U,!0):!1}let at={[gr]:i.FUNC_ADD,[Wm]:i.FUNC_SUBTRACT,[Xm]:i.FUNC_REVERSE_SUBTRACT};at[qm]=i.MIN,at[Ym]=i.MAX;let nt={[$m]:i.ZERO,[Zm]:i.ONE,[Km]:i.SRC_COLOR,[nd]:i.SRC_ALPHA,[ng]:i.SRC_ALPHA_SATURATE,[eg]:i.DST_COLOR,[jm]:i.DST_ALPHA,[Jm]:i.ONE_MINUS_SRC_COLOR,[id]:i.ONE_MINUS_SRC_ALPHA,[tg]:i.ONE_MINUS_DST_COLOR,[Qm]:i.ONE_MINUS_DST_ALPHA,[ig]:i.CONSTANT_COLOR,[sg]:i.ONE_MINUS_CONSTANT_COLOR,[rg]:i.CONSTANT_ALPHA,[og]:i.ONE_MINUS_CONSTANT_ALPHA};function Wt(U,oe,ie,Ee,_e,Se,We,Je,he,Be){if(U===mr){m===!0&&(Xe(i.BLEND),m=!1);return}if(m===!1&&(Me(i.BLEND),m=!0),U!==Gm){if(U!==g||Be!==N){if((v!==gr||C!==gr)&&(i.blendEquation(i.FUNC_ADD),v=gr,C=gr),Be)switch(U){case _o:i.blendFuncSeparate(i.ONE,i.ONE_MINUS_SRC_ALPHA,i.ONE,i.ONE_MINUS_SRC_ALPHA);break;case Qu:i.blendFunc(i.ONE,i.ONE);break;case ed:i.blendFuncSeparate(i.ZERO,i.ONE_MINUS_SRC_COLOR,i.ZERO,i.ONE);break;case td:i.blendFuncSeparate(i.DST_COLOR,i.ONE_MINUS_SRC_ALPHA,i.ZERO,i.ONE);break;default:et("WebGLState: Invalid blending: ",U);break}else switch(U){case _o:i.blendFuncSeparate(i.SRC_ALPHA,i.ONE_MINUS_SRC_ALPHA,i.ONE,i.ONE_MINUS_SRC_ALPHA);break;case Qu:i.blendFuncSeparate(i.SRC_ALPHA,i.ONE,i.ONE,i.ONE);break;case ed:et("WebGLState: SubtractiveBlending requires material.premultipliedAlpha = true");break;case td:et("WebGLState: MultiplyBlending requires material.premultipliedAlpha = true");break;default:et("WebGLState: Invalid blending: ",U);break}A=null,S=null,T=null,x=null,E.set(0,0,0),B=0,g=U,N=Be}return}_e=_e||oe,Se=Se||ie,We=We||Ee,(oe!==v||_e!==C)&&(i.blendEquationSeparate(at[oe],at[_e]),v=oe,C=_e),(ie!==A||Ee!==S||Se!==T||We!==x)&&(i.blendFuncSeparate(nt[ie],nt[Ee],nt[Se],nt[We]),A=ie,S=Ee,T=Se,x=We),(Je.equals(E)===!1||he!==B)&&(i.blendColor(Je.r,Je.g,Je.b,he),E.copy(Je),B=he),g=U,N=!1}function Ft(U,oe){U.side===ci?Xe(i.CULL_FACE):Me(i.CULL_FACE);let ie=U.side===Wn;oe&&(ie=!ie),nn(ie),U.blending===_o&&U.transparent===!1?Wt(mr):Wt(U.blending,U.blendEquation,U.blendSrc,U.blendDst,U.blendEquationAlpha,U.blendSrcAlpha,U.blendDstAlpha,U.blendColor,U.blendAlpha,U.premultipliedAlpha),o.setFunc(U.depthFunc),o.setTest(U.depthTest),o.setMask(U.depthWrite),r.setMask(U.colorWrite);let Ee=U.stencilWrite;a.setTest(Ee),Ee&&(a.setMask(U.stencilWriteMask),a.setFunc(U.stencilFunc,U.stencilRef,U.stencilFuncMask),a.setOp(U.stencilFail,U.stencilZFail,U.stencilZPass)),vt(U.polygonOffset,U.polygonOffsetFactor,U.polygonOffsetUnits),U.alphaToCoverage===!0?Me(i.SAMPLE_ALPHA_TO_COVERAGE):Xe(i.SAMPLE_ALPHA_TO_COVERAGE)}function nn(U){D!==U&&(U?i.frontFace(i.CW):i.frontFace(i.CCW),D=U)}function Pt(U){U!==zm?(Me(i.CULL_FACE),U!==G&&(U===ju?i.cullFace(i.BACK):U===Hm?i.cullFace(i.FRONT):i.cullFace(i.FRONT_AND_BACK))):Xe(i.CULL_FACE),G=U}function bn(U){U!==V&&(z&&i.lineWidth(U),V=U)}function vt(U,oe,ie){U?(Me(i.POLYGON_OFFSET_FILL),(I!==oe||W!==ie)&&(I=oe,W=ie,o.getReversed()&&(oe=-oe,ie=-ie),i.polygonOffset(oe,ie))):Xe(i.POLYGON_OFFSET_FILL)}function fn(U){U?Me(i.SCISSOR_TEST):Xe(i.SCISSOR_TEST)}function $t(U){U===void 0&&(U=i.TEXTURE0+$-1),ee!==U&&(i.activeTexture(U),ee=U)}function sn(U,oe,ie){ie===void 0&&(ee===null?ie=i.TEXTURE0+$-1:ie=ee);let Ee=re[ie];Ee===void 0&&(Ee={type:void 0,texture:void 0},re[ie]=Ee),(Ee.type!==U||Ee.texture!==oe)&&(ee!==ie&&(i.activeTexture(ie),ee=ie),i.bindTexture(U,oe||Re[U]),Ee.type=U,Ee.texture=oe)}function O(){let U=re[ee];U!==void 0&&U.type!==void 0&&(i.bindTexture(U.type,null),U.type=void 0,U.texture=void 0)}function Pe(){try{i.compressedTexImage2D(...arguments)}catch(U){et("WebGLState:",U)}}function Ze(){try{i.compressedTexImage3D(...arguments)}catch(U){et("WebGLState:",U)}}function rt(){try{i.texSubImage2D(...arguments)}catch(U){et("WebGLState:",U)}}function we(){try{i.texSubImage3D(...arguments)}catch(U){et("WebGLState:",U)}}function Lt(){try{i.compressedTexSubImage2D(...arguments)}catch(U){et("WebGLState:",U)}}function Ve(){try{i.compressedTexSubImage3D(...arguments)}catch(U){et("WebGLState:",U)}}function Ye(){try{i.texStorage2D(...arguments)}catch(U){et("WebGLState:",U)}}function R(){try{i.texStorage3D(...arguments)}catch(U){et("WebGLState:",U)}}function b(){try{i.texImage2D(...arguments)}catch(U){et("WebGLState:",U)}}function q(){try{i.texImage3D(...arguments)}catch(U){et("WebGLState:",U)}}function ue(U){return u[U]!==void 0?u[U]:i.getParameter(U)}function ae(U,oe){u[U]!==oe&&(i.pixelStorei(U,oe),u[U]=oe)}function xe(U){te.equals(U)===!1&&(i.scissor(U.x,U.y,U.z,U.w),te.copy(U))}function ye(U){ge.equals(U)===!1&&(i.viewport(U.x,U.y,U.z,U.w),ge.copy(U))}function ne(U,oe){let ie=c.get(oe);ie===void 0&&(ie=new WeakMap,c.set(oe,ie));let Ee=ie.get(U);Ee===void 0&&(Ee=i.getUniformBlockIndex(oe,U.name),i.uniformBlockBinding(oe,Ee,Ee),ie.set(U,Ee))}function se(U,oe,ie){let _e=c.get(oe).get(U);l[_e]!==ie&&(i.bindBufferBase(i.UNIFORM_BUFFER,_e,ie),l[_e]=ie)}function me(){i.disable(i.BLEND),i.disable(i.CULL_FACE),i.disable(i.DEPTH_TEST),i.disable(i.POLYGON_OFFSET_FILL),i.disable(i.SCISSOR_TEST),i.disable(i.STENCIL_TEST),i.disable(i.SAMPLE_ALPHA_TO_COVERAGE),i.blendEquation(i.FUNC_ADD),i.blendFunc(i.ONE,i.ZERO),i.blendFuncSeparate(i.ONE,i.ZERO,i.ONE,i.ZERO),i.blendColor(0,0,0,0),i.colorMask(!0,!0,!0,!0),i.clearColor(0,0,0,0),i.depthMask(!0),i.depthFunc(i.LESS),o.setReversed(!1),i.clearDepth(1),i.stencilMask(4294967295),i.stencilFunc(i.ALWAYS,0,4294967295),i.stencilOp(i.KEEP,i.KEEP,i.KEEP),i.clearStencil(0),i.cullFace(i.BACK),i.frontFace(i.CCW),i.polygonOffset(0,0),i.activeTexture(i.TEXTURE0),i.bindFramebuffer(i.FRAMEBUFFER,null),i.bindFramebuffer(i.DRAW_FRAMEBUFFER,null),i.bindFramebuffer(i.READ_FRAMEBUFFER,null),i.useProgram(null),i.lineWidth(1),i.scissor(0,0,i.canvas.width,i.canvas.height),i.viewport(0,0,i.canvas.width,i.canvas.height),i.pixelStorei(i.PACK_ALIGNMENT,4),i.pixelStorei(i.UNPACK_ALIGNMENT,4),i.pixelStorei(i.UNPACK_FLIP_Y_WEBGL,!1),i.pixelStorei(i.UNPACK_PREMULTIPLY_ALPHA_WEBGL,!1),i.pixelStorei(i.UNPACK_COLORSPACE_CONVERSION_WEBGL,i.BROWSER_DEFAULT_WEBGL),i.pixelStorei(i.PACK_ROW_LENGTH,0),i.pixelStorei(i.PACK_SKIP_PIXELS,0),i.pixelStorei(i.PACK_SKIP_ROWS,0),i.pixelStorei(i.UNPACK_ROW_LENGTH,0),i.pixelStorei(i.UNPACK_IMAGE_HEIGHT,0),i.pixelStorei(i.UNPACK_SKIP_PIXELS,0),i.pixelStorei(i.UNPACK_SKIP_ROWS,0),i.pixelStorei(i.UNPACK_SKIP_IMAGES,0),h={},u={},ee=null,re={},d={},l={},f=new WeakMap,p=[],y=null,m=!1,g=null,v=null,A=null,S=null,C=null,T=null,x=null,E=new gt(0,0,0),B=0,N=!1,D=null,G=null,V=null,I=null,W=null,te.set(0,0,i.canvas.width,i.canvas.height),ge.set(0,0,i.canvas.width,i.canvas.height),r.reset(),o.reset(),a.reset()}return{buffers:{color:r,depth:o,stencil:a},enable:Me,disable:Xe,bindFramebuffer:st,drawBuffers:Ge,useProgram:ut,setBlending:Wt,setMaterial:Ft,setFlipSided:nn,setCullFace:Pt,setLineWidth:bn,setPolygonOffset:vt,setScissorTest:fn,activeTexture:$t,bindTexture:sn,unbindTexture:O,compressedTexImage2D:Pe,compressedTexImage3D:Ze,texImage2D:b,texImage3D:q,pixelStorei:ae,getParameter:ue,updateUBOMapping:ne,uniformBlockBinding:se,texStorage2D:Ye,texStorage3D:R,texSubImage2D:rt,texSubImage3D:we,compressedTexSubImage2D:Lt,compressedTexSubImage3D:Ve,scissor:xe,viewport:ye,reset:me}}function Dw(i,e,t,n,s,r,o){let a=e.has("WEBGL_multisampled_render_to_texture")?e.get("WEBGL_multisampled_render_to_texture"):null,l=typeof navigator>"u"?!1:/OculusBrowser/g.test(navigator.userAgent),c=new ze,h=new WeakMap,u=new Set,d,f=new WeakMap,p=new Set,y=new FinalizationRegistry(R=>p.delete(R)),m=!1;try{m=typeof OffscreenCanvas<"u"&&new OffscreenCanvas(1,1).getContext("2d")!==null}catch{}function g(R,b){return m?new OffscreenCanvas(R,b):ra("canvas")}function v(R,b,q){let ue=1,ae=Ye(R);if((ae.width>q||ae.height>q)&&(ue=q/Math.max(ae.width,ae.height)),ue<1)if(typeof HTMLImageElement<"u"&&R instanceof HTMLImageElement||typeof HTMLCanvasElement<"u"&&R instanceof HTMLCanvasElement||typeof ImageBitmap<"u"&&R instanceof ImageBitmap||typeof VideoFrame<"u"&&R instanceof VideoFrame){let xe=Math.floor(ue*ae.width),ye=Math.floor(ue*ae.height);d===void 0&&(d=g(xe,ye));let ne=b?g(xe,ye):d;return ne.width=xe,ne.height=ye,ne.getContext("2d").drawImage(R,0,0,xe,ye),$e("WebGLRenderer: Texture has been resized from ("+ae.width+"x"+ae.height+") to ("+xe+"x"+ye+")."),ne}else return"data"in R&&$e("WebGLRenderer: Image in DataTexture is too big ("+ae.width+"x"+ae.height+")."),R;return R}function A(R){return R.generateMipmaps}function S(R){i.generateMipmap(R)}function C(R){return R.isWebGLCubeRenderTarget?i.TEXTURE_CUBE_MAP:R.isWebGL3DRenderTarget?i.TEXTURE_3D:R.isWebGLArrayRenderTarget||R.isCompressedArrayTexture?i.TEXTURE_2D_ARRAY:i.TEXTURE_2D}function T(R,b,q,ue,ae,xe=!1){if(R!==null){if(i[R]!==void 0)return i[R];$e("WebGLRenderer: Attempt to use non-existing WebGL internal format '"+R+"'")}let ye;ue&&(ye=e.get("EXT_texture_norm16"),ye||$e("WebGLRenderer: Unable to use normalized textures without EXT_texture_norm16 extension"));let ne=b;if(b===i.RED&&(q===i.FLOAT&&(ne=i.R32F),q===i.HALF_FLOAT&&(ne=i.R16F),q===i.UNSIGNED_BYTE&&(ne=i.R8),q===i.UNSIGNED_SHORT&&ye&&(ne=ye.R16_EXT),q===i.SHORT&&ye&&(ne=ye.R16_SNORM_EXT)),b===i.RED_INTEGER&&(q===i.UNSIGNED_BYTE&&(ne=i.R8UI),q===i.UNSIGNED_SHORT&&(ne=i.R16UI),q===i.UNSIGNED_INT&&(ne=i.R32UI),q===i.BYTE&&(ne=i.R8I),q===i.SHORT&&(ne=i.R16I),q===i.INT&&(ne=i.R32I)),b===i.RG&&(q===i.FLOAT&&(ne=i.RG32F),q===i.HALF_FLOAT&&(ne=i.RG16F),q===i.UNSIGNED_BYTE&&(ne=i.RG8),q===i.UNSIGNED_SHORT&&ye&&(ne=ye.RG16_EXT),q===i.SHORT&&ye&&(ne=ye.RG16_SNORM_EXT)),b===i.RG_INTEGER&&(q===i.UNSIGNED_BYTE&&(ne=i.RG8UI),q===i.UNSIGNED_SHORT&&(ne=i.RG16UI),q===i.UNSIGNED_INT&&(ne=i.RG32UI),q===i.BYTE&&(ne=i.RG8I),q===i.SHORT&&(ne=i.RG16I),q===i.INT&&(ne=i.RG32I)),b===i.RGB_INTEGER&&(q===i.UNSIGNED_BYTE&&(ne=i.RGB8UI),q===i.UNSIGNED_SHORT&&(ne=i.RGB16UI),q===i.UNSIGNED_INT&&(ne=i.RGB32UI),q===i.BYTE&&(ne=i.RGB8I),q===i.SHORT&&(ne=i.RGB16I),q===i.INT&&(ne=i.RGB32I)),b===i.RGBA_INTEGER&&(q===i.UNSIGNED_BYTE&&(ne=i.RGBA8UI),q===i.UNSIGNED_SHORT&&(ne=i.RGBA16UI),q===i.UNSIGNED_INT&&(ne=i.RGBA32UI),q===i.BYTE&&(ne=i.RGBA8I),q===i.SHORT&&(ne=i.RGBA16I),q===i.INT&&(ne=i.RGBA32I)),b===i.RGB&&(q===i.UNSIGNED_SHORT&&ye&&(ne=ye.RGB16_EXT),q===i.SHORT&&ye&&(ne=ye.RGB16_SNORM_EXT),q===i.UNSIGNED_INT_5_9_9_9_REV&&(ne=i.RGB9_E5),q===i.UNSIGNED_INT_10F_11F_11F_REV&&(ne=i.R11F_G11F_B10F)),b===i.RGBA){let se=xe?ia:pt.getTransfer(ae);q===i.FLOAT&&(ne=i.RGBA32F),q===i.HALF_FLOAT&&(ne=i.RGBA16F),q===i.UNSIGNED_BYTE&&(ne=se===Tt?i.SRGB8_ALPHA8:i.RGBA8),q===i.UNSIGNED_SHORT&&ye&&(ne=ye.RGBA16_EXT),q===i.SHORT&&ye&&(ne=ye.RGBA16_SNORM_EXT),q===i.UNSIGNED_SHORT_4_4_4_4&&(ne=i.RGBA4),q===i.UNSIGNED_SHORT_5_5_5_1&&(ne=i.RGB5_A1)}return(ne===i.R16F||ne===i.R32F||ne===i.RG16F||ne===i.RG32F||ne===i.RGBA16F||ne===i.RGBA32F)&&e.get("EXT_color_buffer_float"),ne}function x(R,b){let q;return R?b===null||b===hi||b===xr?q=i.DEPTH24_STENCIL8:b===Ii?q=i.DEPTH32F_STENCIL8:b===Hs&&(q=i.DEPTH24_STENCIL8,$e("DepthTexture: 16 bit depth attachment is not supported with stencil. Using 24-bit attachment.")):b===null||b===hi||b===xr?q=i.DEPTH_COMPONENT24:b===Ii?q=i.DEPTH_COMPONENT32F:b===Hs&&(q=i.DEPTH_COMPONENT16),q}function E(R,b){return A(R)===!0||R.isFramebufferTexture&&R.minFilter!==An&&R.minFilter!==Rn?Math.log2(Math.max(b.width,b.height))+1:R.mipmaps.length>0?R.mipmaps.length:R.isCompressedTexture&&Array.isArray(R.image)?b.mipmaps.length:1}function B(R){let b=new WeakRef(R);n.get(R).__ref=b,p.add(b),y.register(R,b,b)}function N(R){let b=n.get(R).__ref;b!==void 0&&(p.delete(b),y.unregister(b))}function D(R){V(R.target)}function G(R){I(R.target)}function V(R){R.removeEventListener("dispose",D),N(R),$(R),R.isVideoTexture&&h.delete(R),R.isHTMLTexture&&u.delete(R)}function I(R){R.removeEventListener("dispose",G),N(R),ce(R)}function W(){for(let R of p){let b=R.deref();b!==void 0&&(b.isRenderTarget===!0?I(b):V(b))}p.clear(),u.clear()}function $(R){let b=n.get(R);if(b.__webglInit===void 0)return;let q=R.source,ue=f.get(q);if(ue){let ae=ue[b.__cacheKey];ae.usedTimes--,ae.usedTimes===0&&z(R),Object.keys(ue).length===0&&f.delete(q)}n.remove(R)}function z(R){let b=n.get(R);i.deleteTexture(b.__webglTexture);let q=R.source,ue=f.get(q);delete ue[b.__cacheKey],o.memory.textures--}function ce(R){let b=n.get(R);b.__depthDisposeCallback&&b.__depthDisposeCallback();let q=R.depthTexture;if(q&&q.renderTarget===R&&V(q),R.isWebGLCubeRenderTarget)for(let ae=0;ae<6;ae++){if(Array.isArray(b.__webglFramebuffer[ae]))for(let xe=0;xe<b.__webglFramebuffer[ae].length;xe++)i.deleteFramebuffer(b.__webglFramebuffer[ae][xe]);else i.deleteFramebuffer(b.__webglFramebuffer[ae]);b.__webglDepthbuffer&&i.deleteRenderbuffer(b.__webglDepthbuffer[ae])}else{if(Array.isArray(b.__webglFramebuffer))for(let ae=0;ae<b.__webglFramebuffer.length;ae++)i.deleteFramebuffer(b.__webglFramebuffer[ae]);else i.deleteFramebuffer(b.__webglFramebuffer);if(b.__webglDepthbuffer&&i.deleteRenderbuffer(b.__webglDepthbuffer),b.__webglMultisampledFramebuffer&&i.deleteFramebuffer(b.__webglMultisampledFramebuffer),b.__webglColorRenderbuffer)for(let ae=0;ae<b.__webglColorRenderbuffer.length;ae++)b.__webglColorRenderbuffer[ae]&&i.deleteRenderbuffer(b.__webglColorRenderbuffer[ae]);b.__webglDepthRenderbuffer&&i.deleteRenderbuffer(b.__webglDepthRenderbuffer)}let ue=R.textures;for(let ae=0,xe=ue.length;ae<xe;ae++){let ye=n.get(ue[ae]);ye.__webglTexture&&(i.deleteTexture(ye.__webglTexture),o.memory.textures--),n.remove(ue[ae])}n.remove(R)}let K=0;function ee(){K=0}function re(){return K}function fe(R){K=R}function de(){let R=K;return R>=s.maxTextures&&$e("WebGLTextures: Trying to use "+(R+1)+" texture units while this GPU supports only "+s.maxTextures),K+=1,R}function te(R){let b=[];return b.push(R.wrapS),b.push(R.wrapT),b.push(R.wrapR||0),b.push(R.magFilter),b.push(R.minFilter),b.push(R.anisotropy),b.push(R.internalFormat),b.push(R.format),b.push(R.type),b.push(R.generateMipmaps),b.push(R.mipmapsAutoUpdate),b.push(R.premultiplyAlpha),b.push(R.flipY),b.push(R.unpackAlignment),b.push(R.colorSpace),b.join()}function ge(R,b){let q=n.get(R);if(R.isVideoTexture&&Lt(R),R.isRenderTargetTexture===!1&&R.isExternalTexture!==!0&&R.version>0&&q.__version!==R.version){let ue=R.image;if(ue===null)$e("WebGLRenderer: Texture marked for update but no image data found.");else if(ue.complete===!1)$e("WebGLRenderer: Texture marked for update but image is incomplete");else{Ft(q,R,b);return}}else R.isExternalTexture&&(q.__webglTexture=R.sourceTexture?R.sourceTexture:null);t.bindTexture(i.TEXTURE_2D,q.__webglTexture,i.TEXTURE0+b)}function ve(R,b){let q=n.get(R);if(R.isRenderTargetTexture===!1&&R.version>0&&q.__version!==R.version){Ft(q,R,b);return}else R.isExternalTexture&&(q.__webglTexture=R.sourceTexture?R.sourceTexture:null);t.bindTexture(i.TEXTURE_2D_ARRAY,q.__webglTexture,i.TEXTURE0+b)}function Re(R,b){let q=n.get(R);if(R.isRenderTargetTexture===!1&&R.version>0&&q.__version!==R.version){Ft(q,R,b);return}t.bindTexture(i.TEXTURE_3D,q.__webglTexture,i.TEXTURE0+b)}function Me(R,b){let q=n.get(R);if(R.version>0&&q.__version!==R.version){nn(q,R,b);return}t.bindTexture(i.TEXTURE_CUBE_MAP,q.__webglTexture,i.TEXTURE0+b)}let Xe={[jl]:i.REPEAT,[Wi]:i.CLAMP_TO_EDGE,[Ql]:i.MIRRORED_REPEAT},st={[An]:i.NEAREST,[cg]:i.NEAREST_MIPMAP_NEAREST,[wa]:i.NEAREST_MIPMAP_LINEAR,[Rn]:i.LINEAR,[Lc]:i.LINEAR_MIPMAP_NEAREST,[ps]:i.LINEAR_MIPMAP_LINEAR},Ge={[fg]:i.NEVER,[Sd]:i.ALWAYS,[pg]:i.LESS,[Ia]:i.LEQUAL,[mg]:i.EQUAL,[bd]:i.GEQUAL,[gg]:i.GREATER,[_g]:i.NOTEQUAL};function ut(R,b){if(b.type===Ii&&e.has("OES_texture_float_linear")===!1&&(b.magFilter===Rn||b.magFilter===Lc||b.magFilter===wa||b.magFilter===ps||b.minFilter===Rn||b.minFilter===Lc||b.minFilter===wa||b.minFilter===ps)&&$e("WebGLRenderer: Unable to use linear filtering with floating point textures. OES_texture_float_linear not supported on this device."),i.texParameteri(R,i.TEXTURE_WRAP_S,Xe[b.wrapS]),i.texParameteri(R,i.TEXTURE_WRAP_T,Xe[b.wrapT]),(R===i.TEXTURE_3D||R===i.TEXTURE_2D_ARRAY)&&i.texParameteri(R,i.TEXTURE_WRAP_R,Xe[b.wrapR]),i.texParameteri(R,i.TEXTURE_MAG_FILTER,st[b.magFilter]),i.texParameteri(R,i.TEXTURE_MIN_FILTER,st[b.minFilter]),b.compareFunction&&(i.texParameteri(R,i.TEXTURE_COMPARE_MODE,i.COMPARE_REF_TO_TEXTURE),i.texParameteri(R,i.TEXTURE_COMPARE_FUNC,Ge[b.compareFunction])),e.has("EXT_texture_filter_anisotropic")===!0){if(b.magFilter===An||b.minFilter!==wa&&b.minFilter!==ps||b.type===Ii&&e.has("OES_texture_float_linear")===!1)return;if(b.anisotropy>1||n.get(b).__currentAnisotropy){let q=e.get("EXT_texture_filter_anisotropic");i.texParameterf(R,q.TEXTURE_MAX_ANISOTROPY_EXT,Math.min(b.anisotropy,s.getMaxAnisotropy())),n.get(b).__currentAnisotropy=b.anisotropy}}}function at(R,b){let q=!1;R.__webglInit===void 0&&(R.__webglInit=!0,b.addEventListener("dispose",D),B(b));let ue=b.source,ae=f.get(ue);ae===void 0&&(ae={},f.set(ue,ae));let xe=te(b);if(xe!==R.__cacheKey){ae[xe]===void 0&&(ae[xe]={texture:i.createTexture(),usedTimes:0},o.memory.textures++,q=!0),ae[xe].usedTimes++;let ye=ae[R.__cacheKey];ye!==void 0&&(ae[R.__cacheKey].usedTimes--,ye.usedTimes===0&&z(b)),R.__cacheKey=xe,R.__webglTexture=ae[xe].texture}return q}function nt(R,b,q){return Math.floor(Math.floor(R/q)/b)}function Wt(R,b,q,ue){let xe=R.updateRanges;if(xe.length===0)t.texSubImage2D(i.TEXTURE_2D,0,0,0,b.width,b.height,q,ue,b.data);else{xe.sort((U,oe)=>U.start-oe.start);let ye=0;for(let U=1;U<xe.length;U++){let oe=xe[ye],ie=xe[U],Ee=oe.start+oe.count,_e=nt(ie.start,b.width,4),Se=nt(oe.start,b.width,4);ie.start<=Ee+1&&_e===Se&&nt(ie.start+ie.count-1,b.width,4)===_e?oe.count=Math.max(oe.count,ie.start+ie.count-oe.start):(++ye,xe[ye]=ie)}xe.length=ye+1;let ne=t.getParameter(i.UNPACK_ROW_LENGTH),se=t.getParameter(i.UNPACK_SKIP_PIXELS),me=t.getParameter(i.UNPACK_SKIP_ROWS);t.pixelStorei(i.UNPACK_ROW_LENGTH,b.width);for(let U=0,oe=xe.length;U<oe;U++){let ie=xe[U],Ee=Math.floor(ie.start/4),_e=Math.ceil(ie.count/4),Se=Ee%b.width,We=Math.floor(Ee/b.width),Je=_e,he=1;t.pixelStorei(i.UNPACK_SKIP_PIXELS,Se),t.pixelStorei(i.UNPACK_SKIP_ROWS,We),t.texSubImage2D(i.TEXTURE_2D,0,Se,We,Je,he,q,ue,b.data)}R.clearUpdateRanges(),t.pixelStorei(i.UNPACK_ROW_LENGTH,ne),t.pixelStorei(i.UNPACK_SKIP_PIXELS,se),t.pixelStorei(i.UNPACK_SKIP_ROWS,me)}}function Ft(R,b,q){let ue=i.TEXTURE_2D;(b.isDataArrayTexture||b.isCompressedArrayTexture)&&(ue=i.TEXTURE_2D_ARRAY),b.isData3DTexture&&(ue=i.TEXTURE_3D);let ae=at(R,b),xe=b.source;t.bindTexture(ue,R.__webglTexture,i.TEXTURE0+q);let ye=n.get(xe);if(xe.version!==ye.__version||ae===!0){if(t.activeTexture(i.TEXTURE0+q),(typeof ImageBitmap<"u"&&b.image instanceof ImageBitmap)===!1){let he=pt.getPrimaries(pt.workingColorSpace),Be=b.colorSpace===gs?null:pt.getPrimaries(b.colorSpace),je=b.colorSpace===gs||he===Be?i.NONE:i.BROWSER_DEFAULT_WEBGL;t.pixelStorei(i.UNPACK_FLIP_Y_WEBGL,b.flipY),t.pixelStorei(i.UNPACK_PREMULTIPLY_ALPHA_WEBGL,b.premultiplyAlpha),t.pixelStorei(i.UNPACK_COLORSPACE_CONVERSION_WEBGL,je)}t.pixelStorei(i.UNPACK_ALIGNMENT,b.unpackAlignment);let se=v(b.image,!1,s.maxTextureSize);se=Ve(b,se);let me=r.convert(b.format,b.colorSpace),U=r.convert(b.type),oe=T(b.internalFormat,me,U,b.normalized,b.colorSpace,b.isVideoTexture);ut(ue,b);let ie,Ee=b.mipmaps,_e=b.isVideoTexture!==!0,Se=ye.__version===void 0||ae===!0,We=xe.dataReady,Je=E(b,se);if(b.isDepthTexture)oe=x(b.format===ms,b.type),Se&&(_e?t.texStorage2D(i.TEXTURE_2D,1,oe,se.width,se.height):t.texImage2D(i.TEXTURE_2D,0,oe,se.width,se.height,0,me,U,null));else if(b.isDataTexture)if(Ee.length>0){_e&&Se&&t.texStorage2D(i.TEXTURE_2D,Je,oe,Ee[0].width,Ee[0].height);for(let he=0,Be=Ee.length;he<Be;he++)ie=Ee[he],_e?We&&t.texSubImage2D(i.TEXTURE_2D,he,0,0,ie.width,ie.height,me,U,ie.data):t.texImage2D(i.TEXTURE_2D,he,oe,ie.width,ie.height,0,me,U,ie.data);b.generateMipmaps=!1}else _e?(Se&&t.texStorage2D(i.TEXTURE_2D,Je,oe,se.width,se.height),We&&Wt(b,se,me,U)):t.texImage2D(i.TEXTURE_2D,0,oe,se.width,se.height,0,me,U,se.data);else if(b.isCompressedTexture)if(b.isCompressedArrayTexture){_e&&Se&&t.texStorage3D(i.TEXTURE_2D_ARRAY,Je,oe,Ee[0].width,Ee[0].height,se.depth);for(let he=0,Be=Ee.length;he<Be;he++)if(ie=Ee[he],b.format!==Di)if(me!==null)if(_e){if(We)if(b.layerUpdates.size>0){let je=Ld(ie.width,ie.height,b.format,b.type);for(let Ce of b.layerUpdates){let ot=ie.data.subarray(Ce*je/ie.data.BYTES_PER_ELEMENT,(Ce+1)*je/ie.data.BYTES_PER_ELEMENT);t.compressedTexSubImage3D(i.TEXTURE_2D_ARRAY,he,0,0,Ce,ie.width,ie.height,1,me,ot)}}else t.compressedTexSubImage3D(i.TEXTURE_2D_ARRAY,he,0,0,0,ie.width,ie.height,se.depth,me,ie.data)}else t.compressedTexImage3D(i.TEXTURE_2D_ARRAY,he,oe,ie.width,ie.height,se.depth,0,ie.data,0,0);else $e("WebGLRenderer: Attempt to load unsupported compressed texture format in .uploadTexture()");else _e?We&&t.texSubImage3D(i.TEXTURE_2D_ARRAY,he,0,0,0,ie.width,ie.height,se.depth,me,U,ie.data):t.texImage3D(i.TEXTURE_2D_ARRAY,he,oe,ie.width,ie.height,se.depth,0,me,U,ie.data);b.layerUpdates.size>0&&b.clearLayerUpdates()}else{_e&&Se&&t.texStorage2D(i.TEXTURE_2D,Je,oe,Ee[0].width,Ee[0].height);for(let he=0,Be=Ee.length;he<Be;he++)ie=Ee[he],b.format!==Di?me!==null?_e?We&&t.compressedTexSubImage2D(i.TEXTURE_2D,he,0,0,ie.width,ie.height,me,ie.data):t.compressedTexImage2D(i.TEXTURE_2D,he,oe,ie.width,ie.height,0,ie.data):$e("WebGLRenderer: Attempt to load unsupported compressed texture format in .uploadTexture()"):_e?We&&t.texSubImage2D(i.TEXTURE_2D,he,0,0,ie.width,ie.height,me,U,ie.data):t.texImage2D(i.TEXTURE_2D,he,oe,ie.width,ie.height,0,me,U,ie.data)}else if(b.isDataArrayTexture)if(_e){if(Se&&t.texStorage3D(i.TEXTURE_2D_ARRAY,Je,oe,se.width,se.height,se.depth),We)if(b.layerUpdates.size>0){let he=Ld(se.width,se.height,b.format,b.type);for(let Be of b.layerUpdates){let je=se.data.subarray(Be*he/se.data.BYTES_PER_ELEMENT,(Be+1)*he/se.data.BYTES_PER_ELEMENT);t.texSubImage3D(i.TEXTURE_2D_ARRAY,0,0,0,Be,se.width,se.height,1,me,U,je)}b.clearLayerUpdates()}else t.texSubImage3D(i.TEXTURE_2D_ARRAY,0,0,0,0,se.width,se.height,se.depth,me,U,se.data)}else t.texImage3D(i.TEXTURE_2D_ARRAY,0,oe,se.width,se.height,se.depth,0,me,U,se.data);else if(b.isData3DTexture)_e?(Se&&t.texStorage3D(i.TEXTURE_3D,Je,oe,se.width,se.height,se.depth),We&&t.texSubImage3D(i.TEXTURE_3D,0,0,0,0,se.width,se.height,se.depth,me,U,se.data)):t.texImage3D(i.TEXTURE_3D,0,oe,se.width,se.height,se.depth,0,me,U,se.data);else if(b.isFramebufferTexture){if(Se)if(_e)t.texStorage2D(i.TEXTURE_2D,Je,oe,se.width,se.height);else{let he=se.width,Be=se.height;for(let je=0;je<Je;je++)t.texImage2D(i.TEXTURE_2D,je,oe,he,Be,0,me,U,null),he>>=1,Be>>=1}}else if(b.isHTMLTexture){if("texElementImage2D"in i){let he=i.canvas;if(he.hasAttribute("layoutsubtree")||he.setAttribute("layoutsubtree","true"),se.parentNode!==he){he.appendChild(se),u.add(b),he.onpaint=Be=>{let je=Be.changedElements;for(let Ce of u)je.includes(Ce.image)&&(Ce.needsUpdate=!0)},he.requestPaint();return}if(i.texElementImage2D.length===3)i.texElementImage2D(i.TEXTURE_2D,i.RGBA8,se);else{let je=i.RGBA,Ce=i.RGBA,ot=i.UNSIGNED_BYTE;i.texElementImage2D(i.TEXTURE_2D,0,je,Ce,ot,se)}i.texParameteri(i.TEXTURE_2D,i.TEXTURE_MIN_FILTER,i.LINEAR),i.texParameteri(i.TEXTURE_2D,i.TEXTURE_WRAP_S,i.CLAMP_TO_EDGE),i.texParameteri(i.TEXTURE_2D,i.TEXTURE_WRAP_T,i.CLAMP_TO_EDGE)}}else if(Ee.length>0){if(_e&&Se){let he=Ye(Ee[0]);t.texStorage2D(i.TEXTURE_2D,Je,oe,he.width,he.height)}for(let he=0,Be=Ee.length;he<Be;he++)ie=Ee[he],_e?We&&t.texSubImage2D(i.TEXTURE_2D,he,0,0,me,U,ie):t.texImage2D(i.TEXTURE_2D,he,oe,me,U,ie);b.generateMipmaps=!1}else if(_e){if(Se){let he=Ye(se);t.texStorage2D(i.TEXTURE_2D,Je,oe,he.width,he.height)}We&&t.texSubImage2D(i.TEXTURE_2D,0,0,0,me,U,se)}else t.texImage2D(i.TEXTURE_2D,0,oe,me,U,se);A(b)&&b.mipmapsAutoUpdate===!0&&S(ue),ye.__version=xe.version,b.onUpdate&&b.onUpdate(b)}R.__version=b.version}function nn(R,b,q){if(b.image.length!==6)return;let ue=at(R,b),ae=b.source;t.bindTexture(i.TEXTURE_CUBE_MAP,R.__webglTexture,i.TEXTURE0+q);let xe=n.get(ae);if(ae.version!==xe.__version||ue===!0){t.activeTexture(i.TEXTURE0+q);let ye=pt.getPrimaries(pt.workingColorSpace),ne=b.colorSpace===gs?null:pt.getPrimaries(b.colorSpace),se=b.colorSpace===gs||ye===ne?i.NONE:i.BROWSER_DEFAULT_WEBGL;t.pixelStorei(i.UNPACK_FLIP_Y_WEBGL,b.flipY),t.pixelStorei(i.UNPACK_PREMULTIPLY_ALPHA_WEBGL,b.premultiplyAlpha),t.pixelStorei(i.UNPACK_ALIGNMENT,b.unpackAlignment),t.pixelStorei(i.UNPACK_COLORSPACE_CONVERSION_WEBGL,se);let me=b.isCompressedTexture||b.image[0].isCompressedTexture,U=b.image[0]&&b.image[0].isDataTexture,oe=[];for(let Ce=0;Ce<6;Ce++)!me&&!U?oe[Ce]=v(b.image[Ce],!0,s.maxCubemapSize):oe[Ce]=U?b.image[Ce].image:b.image[Ce],oe[Ce]=Ve(b,oe[Ce]);let ie=oe[0],Ee=r.convert(b.format,b.colorSpace),_e=r.convert(b.type),Se=T(b.internalFormat,Ee,_e,b.normalized,b.colorSpace),We=b.isVideoTexture!==!0,Je=xe.__version===void 0||ue===!0,he=ae.dataReady,Be=E(b,ie);ut(i.TEXTURE_CUBE_MAP,b);let je;if(b.isDepthTexture){if(Se=x(b.format===ms,b.type),Je)if(We)t.texStorage2D(i.TEXTURE_CUBE_MAP,1,Se,ie.width,ie.height);else for(let Ce=0;Ce<6;Ce++)t.texImage2D(i.TEXTURE_CUBE_MAP_POSITIVE_X+Ce,0,Se,ie.width,ie.height,0,Ee,_e,null)}else if(me){We&&Je&&t.texStorage2D(i.TEXTURE_CUBE_MAP,Be,Se,ie.width,ie.height);for(let Ce=0;Ce<6;Ce++){je=oe[Ce].mipmaps;for(let ot=0;ot<je.length;ot++){let Bt=je[ot];b.format!==Di?Ee!==null?We?he&&t.compressedTexSubImage2D(i.TEXTURE_CUBE_MAP_POSITIVE_X+Ce,ot,0,0,Bt.width,Bt.height,Ee,Bt.data):t.compressedTexImage2D(i.TEXTURE_CUBE_MAP_POSITIVE_X+Ce,ot,Se,Bt.width,Bt.height,0,Bt.data):$e("WebGLRenderer: Attempt to load unsupported compressed texture format in .setTextureCube()"):We?he&&t.texSubImage2D(i.TEXTURE_CUBE_MAP_POSITIVE_X+Ce,ot,0,0,Bt.width,Bt.height,Ee,_e,Bt.data):t.texImage2D(i.TEXTURE_CUBE_MAP_POSITIVE_X+Ce,ot,Se,Bt.width,Bt.height,0,Ee,_e,Bt.data)}}}else{if(je=b.mipmaps,We&&Je){je.length>0&&Be++;let Ce=Ye(oe[0]);t.texStorage2D(i.TEXTURE_CUBE_MAP,Be,Se,Ce.width,Ce.height)}for(let Ce=0;Ce<6;Ce++)if(U){We?he&&t.texSubImage2D(i.TEXTURE_CUBE_MAP_POSITIVE_X+Ce,0,0,0,oe[Ce].width,oe[Ce].height,Ee,_e,oe[Ce].data):t.texImage2D(i.TEXTURE_CUBE_MAP_POSITIVE_X+Ce,0,Se,oe[Ce].width,oe[Ce].height,0,Ee,_e,oe[Ce].data);for(let ot=0;ot<je.length;ot++){let Un=je[ot].image[Ce].image;We?he&&t.texSubImage2D(i.TEXTURE_CUBE_MAP_POSITIVE_X+Ce,ot+1,0,0,Un.width,Un.height,Ee,_e,Un.data):t.texImage2D(i.TEXTURE_CUBE_MAP_POSITIVE_X+Ce,ot+1,Se,Un.width,Un.height,0,Ee,_e,Un.data)}}else{We?he&&t.texSubImage2D(i.TEXTURE_CUBE_MAP_POSITIVE_X+Ce,0,0,0,Ee,_e,oe[Ce]):t.texImage2D(i.TEXTURE_CUBE_MAP_POSITIVE_X+Ce,0,Se,Ee,_e,oe[Ce]);for(let ot=0;ot<je.length;ot++){let Bt=je[ot];We?he&&t.texSubImage2D(i.TEXTURE_CUBE_MAP_POSITIVE_X+Ce,ot+1,0,0,Ee,_e,Bt.image[Ce]):t.texImage2D(i.TEXTURE_CUBE_MAP_POSITIVE_X+Ce,ot+1,Se,Ee,_e,Bt.image[Ce])}}}A(b)&&b.mipmapsAutoUpdate===!0&&S(i.TEXTURE_CUBE_MAP),xe.__version=ae.version,b.onUpdate&&b.onUpdate(b)}R.__version=b.version}function Pt(R,b,q,ue,ae,xe){let ye=r.convert(q.format,q.colorSpace),ne=r.convert(q.type),se=T(q.internalFormat,ye,ne,q.normalized,q.colorSpace),me=n.get(b),U=n.get(q);if(U.__renderTarget=b,!me.__hasExternalTextures){let oe=Math.max(1,b.width>>xe),ie=Math.max(1,b.height>>xe);ae===i.TEXTURE_3D||ae===i.TEXTURE_2D_ARRAY?t.texImage3D(ae,xe,se,oe,ie,b.depth,0,ye,ne,null):t.texImage2D(ae,xe,se,oe,ie,0,ye,ne,null)}t.bindFramebuffer(i.FRAMEBUFFER,R),we(b)?a.framebufferTexture2DMultisampleEXT(i.FRAMEBUFFER,ue,ae,U.__webglTexture,0,rt(b)):(ae===i.TEXTURE_2D||ae>=i.TEXTURE_CUBE_MAP_POSITIVE_X&&ae<=i.TEXTURE_CUBE_MAP_NEGATIVE_Z)&&i.framebufferTexture2D(i.FRAMEBUFFER,ue,ae,U.__webglTexture,xe),t.bindFramebuffer(i.FRAMEBUFFER,null)}function bn(R,b,q){if(i.bindRenderbuffer(i.RENDERBUFFER,R),b.depthBuffer){let ue=b.depthTexture,ae=ue&&ue.isDepthTexture?ue.type:null,xe=x(b.stencilBuffer,ae),ye=b.stencilBuffer?i.DEPTH_STENCIL_ATTACHMENT:i.DEPTH_ATTACHMENT;we(b)?a.renderbufferStorageMultisampleEXT(i.RENDERBUFFER,rt(b),xe,b.width,b.height):q?i.renderbufferStorageMultisample(i.RENDERBUFFER,rt(b),xe,b.width,b.height):i.renderbufferStorage(i.RENDERBUFFER,xe,b.width,b.height),i.framebufferRenderbuffer(i.FRAMEBUFFER,ye,i.RENDERBUFFER,R)}else{let ue=b.textures;for(let ae=0;ae<ue.length;ae++){let xe=ue[ae],ye=r.convert(xe.format,xe.colorSpace),ne=r.convert(xe.type),se=T(xe.internalFormat,ye,ne,xe.normalized,xe.colorSpace);we(b)?a.renderbufferStorageMultisampleEXT(i.RENDERBUFFER,rt(b),se,b.width,b.height):q?i.renderbufferStorageMultisample(i.RENDERBUFFER,rt(b),se,b.width,b.height):i.renderbufferStorage(i.RENDERBUFFER,se,b.width,b.height)}}i.bindRenderbuffer(i.RENDERBUFFER,null)}function vt(R,b,q){let ue=b.isWebGLCubeRenderTarget===!0;if(t.bindFramebuffer(i.FRAMEBUFFER,R),!(b.depthTexture&&b.depthTexture.isDepthTexture))throw new Error("THREE.WebGLTextures: renderTarget.depthTexture must be an instance of THREE.DepthTexture.");let ae=n.get(b.depthTexture);ae.__renderTarget=b;let xe=ue?b.depthTexture.image[0]:b.depthTexture.image;(!ae.__webglTexture||xe.width!==b.width||xe.height!==b.height)&&(xe.width=b.width,xe.height=b.height,b.depthTexture.needsUpdate=!0),ue?Me(b.depthTexture,0):ge(b.depthTexture,0);let ye=ae.__webglTexture,ne=rt(b),se=ue?i.TEXTURE_CUBE_MAP_POSITIVE_X+q:i.TEXTURE_2D,me=b.depthTexture.format===ms?i.DEPTH_STENCIL_ATTACHMENT:i.DEPTH_ATTACHMENT;if(b.depthTexture.format===us)we(b)?a.framebufferTexture2DMultisampleEXT(i.FRAMEBUFFER,me,se,ye,0,ne):i.framebufferTexture2D(i.FRAMEBUFFER,me,se,ye,0);else if(b.depthTexture.format===ms)we(b)?a.framebufferTexture2DMultisampleEXT(i.FRAMEBUFFER,me,se,ye,0,ne):i.framebufferTexture2D(i.FRAMEBUFFER,me,se,ye,0);else throw new Error("THREE.WebGLTextures: Unknown depthTexture format.")}function fn(R){let b=n.get(R),q=R.isWebGLCubeRenderTarget===!0;if(b.__boundDepthTexture!==R.depthTexture){let ue=R.depthTexture;if(b.__depthDisposeCallback&&b.__depthDisposeCallback(),ue){let ae=()=>{delete b.__boundDepthTexture,delete b.__depthDisposeCallback,ue.removeEventListener("dispose",ae)};ue.addEventListener("dispose",ae),b.__depthDisposeCallback=ae}b.__boundDepthTexture=ue}if(R.depthTexture&&!b.__autoAllocateDepthBuffer)if(q)for(let ue=0;ue<6;ue++)vt(b.__webglFramebuffer[ue],R,ue);else R.texture.mipmaps.length>0?vt(b.__webglFramebuffer[0],R,0):vt(b.__webglFramebuffer,R,0);else if(q){b.__webglDepthbuffer=[];for(let ue=0;ue<6;ue++)if(t.bindFramebuffer(i.FRAMEBUFFER,b.__webglFramebuffer[ue]),b.__webglDepthbuffer[ue]===void 0)b.__webglDepthbuffer[ue]=i.createRenderbuffer(),bn(b.__webglDepthbuffer[ue],R,!1);else{let ae=R.stencilBuffer?i.DEPTH_STENCIL_ATTACHMENT:i.DEPTH_ATTACHMENT,xe=b.__webglDepthbuffer[ue];i.bindRenderbuffer(i.RENDERBUFFER,xe),i.framebufferRenderbuffer(i.FRAMEBUFFER,ae,i.RENDERBUFFER,xe)}}else if(R.texture.mipmaps.length>0?t.bindFramebuffer(i.FRAMEBUFFER,b.__webglFramebuffer[0]):t.bindFramebuffer(i.FRAMEBUFFER,b.__webglFramebuffer),b.__webglDepthbuffer===void 0)b.__webglDepthbuffer=i.createRenderbuffer(),bn(b.__webglDepthbuffer,R,!1);else{let ae=R.stencilBuffer?i.DEPTH_STENCIL_ATTACHMENT:i.DEPTH_ATTACHMENT,xe=b.__webglDepthbuffer;i.bindRenderbuffer(i.RENDERBUFFER,xe),i.framebufferRenderbuffer(i.FRAMEBUFFER,ae,i.RENDERBUFFER,xe)}t.bindFramebuffer(i.FRAMEBUFFER,null)}function $t(R,b,q){let ue=n.get(R);b!==void 0&&Pt(ue.__webglFramebuffer,R,R.texture,i.COLOR_ATTACHMENT0,i.TEXTURE_2D,0),q!==void 0&&fn(R)}function sn(R){let b=R.texture,q=n.get(R),ue=n.get(b);R.addEventListener("dispose",G),B(R);let ae=R.textures,xe=R.isWebGLCubeRenderTarget===!0,ye=ae.length>1;if(ye||(ue.__webglTexture===void 0&&(ue.__webglTexture=i.createTexture()),ue.__version=b.version,o.memory.textures++),xe){q.__webglFramebuffer=[];for(let ne=0;ne<6;ne++)if(b.mipmaps.length>0){q.__webglFramebuffer[ne]=[];for(let se=0;se<b.mipmaps.length;se++)q.__webglFramebuffer[ne][se]=i.createFramebuffer()}else q.__webglFramebuffer[ne]=i.createFramebuffer()}else{if(b.mipmaps.length>0){q.__webglFramebuffer=[];for(let ne=0;ne<b.mipmaps.length;ne++)q.__webglFramebuffer[ne]=i.createFramebuffer()}else q.__webglFramebuffer=i.createFramebuffer();if(ye)for(let ne=0,se=ae.length;ne<se;ne++){let me=n.get(ae[ne]);me.__webglTexture===void 0&&(me.__webglTexture=i.createTexture(),o.memory.textures++)}if(R.samples>0&&we(R)===!1){q.__webglMultisampledFramebuffer=i.createFramebuffer(),q.__webglColorRenderbuffer=[],t.bindFramebuffer(i.FRAMEBUFFER,q.__webglMultisampledFramebuffer);for(let ne=0;ne<ae.length;ne++){let se=ae[ne];q.__webglColorRenderbuffer[ne]=i.createRenderbuffer(),i.bindRenderbuffer(i.RENDERBUFFER,q.__webglColorRenderbuffer[ne]);let me=r.convert(se.format,se.colorSpace),U=r.convert(se.type),oe=T(se.internalFormat,me,U,se.normalized,se.colorSpace,R.isXRRenderTarget===!0),ie=rt(R);i.renderbufferStorageMultisample(i.RENDERBUFFER,ie,oe,R.width,R.height),i.framebufferRenderbuffer(i.FRAMEBUFFER,i.COLOR_ATTACHMENT0+ne,i.RENDERBUFFER,q.__webglColorRenderbuffer[ne])}i.bindRenderbuffer(i.RENDERBUFFER,null),R.depthBuffer&&(q.__webglDepthRenderbuffer=i.createRenderbuffer(),bn(q.__webglDepthRenderbuffer,R,!0)),t.bindFramebuffer(i.FRAMEBUFFER,null)}}if(xe){t.bindTexture(i.TEXTURE_CUBE_MAP,ue.__webglTexture),ut(i.TEXTURE_CUBE_MAP,b);for(let ne=0;ne<6;ne++)if(b.mipmaps.length>0)for(let se=0;se<b.mipmaps.length;se++)Pt(q.__webglFramebuffer[ne][se],R,b,i.COLOR_ATTACHMENT0,i.TEXTURE_CUBE_MAP_POSITIVE_X+ne,se);else Pt(q.__webglFramebuffer[ne],R,b,i.COLOR_ATTACHMENT0,i.TEXTURE_CUBE_MAP_POSITIVE_X+ne,0);A(b)?S(i.TEXTURE_CUBE_MAP):b.mipmaps.length>0&&i.texParameteri(i.TEXTURE_CUBE_MAP,i.TEXTURE_MAX_LEVEL,b.mipmaps.length-1),t.unbindTexture()}else if(ye){for(let ne=0,se=ae.length;ne<se;ne++){let me=ae[ne],U=n.get(me),oe=i.TEXTURE_2D;(R.isWebGL3DRenderTarget||R.isWebGLArrayRenderTarget)&&(oe=R.isWebGL3DRenderTarget?i.TEXTURE_3D:i.TEXTURE_2D_ARRAY),t.bindTexture(oe,U.__webglTexture),ut(oe,me),Pt(q.__webglFramebuffer,R,me,i.COLOR_ATTACHMENT0+ne,oe,0),A(me)&&S(oe)}t.unbindTexture()}else{let ne=i.TEXTURE_2D;if((R.isWebGL3DRenderTarget||R.isWebGLArrayRenderTarget)&&(ne=R.isWebGL3DRenderTarget?i.TEXTURE_3D:i.TEXTURE_2D_ARRAY),t.bindTexture(ne,ue.__webglTexture),ut(ne,b),b.mipmaps.length>0)for(let se=0;se<b.mipmaps.length;se++)Pt(q.__webglFramebuffer[se],R,b,i.COLOR_ATTACHMENT0,ne,se);else Pt(q.__webglFramebuffer,R,b,i.COLOR_ATTACHMENT0,ne,0);A(b)?S(ne):b.mipmaps.length>0&&i.texParameteri(ne,i.TEXTURE_MAX_LEVEL,b.mipmaps.length-1),t.unbindTexture()}R.depthBuffer&&fn(R)}function O(R){let b=R.textures;for(let q=0,ue=b.length;q<ue;q++){let ae=b[q];if(A(ae)&&ae.mipmapsAutoUpdate===!0){let xe=C(R),ye=n.get(ae).__webglTexture;t.bindTexture(xe,ye),S(xe),t.unbindTexture()}}}let Pe=[];function Ze(R){if(R.samples>0){if(we(R)===!1){let b=R.textures,q=R.width,ue=R.height,ae=i.COLOR_BUFFER_BIT,xe=R.stencilBuffer?i.DEPTH_STENCIL_ATTACHMENT:i.DEPTH_ATTACHMENT,ye=n.get(R),ne=b.length>1;if(ne)for(let me=0;me<b.length;me++)t.bindFramebuffer(i.FRAMEBUFFER,ye.__webglMultisampledFramebuffer),i.framebufferRenderbuffer(i.FRAMEBUFFER,i.COLOR_ATTACHMENT0+me,i.RENDERBUFFER,null),t.bindFramebuffer(i.FRAMEBUFFER,ye.__webglFramebuffer),i.framebufferTexture2D(i.DRAW_FRAMEBUFFER,i.COLOR_ATTACHMENT0+me,i.TEXTURE_2D,null,0);t.bindFramebuffer(i.READ_FRAMEBUFFER,ye.__webglMultisampledFramebuffer),R.texture.mipmaps.length>0?t.bindFramebuffer(i.DRAW_FRAMEBUFFER,ye.__webglFramebuffer[0]):t.bindFramebuffer(i.DRAW_FRAMEBUFFER,ye.__webglFramebuffer);for(let me=0;me<b.length;me++){if(R.resolveDepthBuffer&&(R.depthBuffer&&(ae|=i.DEPTH_BUFFER_BIT),R.stencilBuffer&&R.resolveStencilBuffer&&(ae|=i.STENCIL_BUFFER_BIT)),ne){i.framebufferRenderbuffer(i.READ_FRAMEBUFFER,i.COLOR_ATTACHMENT0,i.RENDERBUFFER,ye.__webglColorRenderbuffer[me]);let U=n.get(b[me]).__webglTexture;i.framebufferTexture2D(i.DRAW_FRAMEBUFFER,i.COLOR_ATTACHMENT0,i.TEXTURE_2D,U,0)}i.blitFramebuffer(0,0,q,ue,0,0,q,ue,ae,i.NEAREST),l===!0&&(Pe.length=0,Pe.push(i.COLOR_ATTACHMENT0+me),R.depthBuffer&&R.storeMultisampledDepthBuffer===!1&&Pe.push(xe),i.invalidateFramebuffer(i.READ_FRAMEBUFFER,Pe))}if(t.bindFramebuffer(i.READ_FRAMEBUFFER,null),t.bindFramebuffer(i.DRAW_FRAMEBUFFER,null),ne)for(let me=0;me<b.length;me++){t.bindFramebuffer(i.FRAMEBUFFER,ye.__webglMultisampledFramebuffer),i.framebufferRenderbuffer(i.FRAMEBUFFER,i.COLOR_ATTACHMENT0+me,i.RENDERBUFFER,ye.__webglColorRenderbuffer[me]);let U=n.get(b[me]).__webglTexture;t.bindFramebuffer(i.FRAMEBUFFER,ye.__webglFramebuffer),i.framebufferTexture2D(i.DRAW_FRAMEBUFFER,i.COLOR_ATTACHMENT0+me,i.TEXTURE_2D,U,0)}t.bindFramebuffer(i.DRAW_FRAMEBUFFER,ye.__webglMultisampledFramebuffer)}else if(R.depthBuffer&&R.storeMultisampledDepthBuffer===!1&&l){let b=R.stencilBuffer?i.DEPTH_STENCIL_ATTACHMENT:i.DEPTH_ATTACHMENT;i.invalidateFramebuffer(i.DRAW_FRAMEBUFFER,[b])}}}function rt(R){return Math.min(s.maxSamples,R.samples)}function we(R){let b=n.get(R);return R.samples>0&&e.has("WEBGL_multisampled_render_to_texture")===!0&&b.__useRenderToTexture!==!1}function Lt(R){let b=o.render.frame;h.get(R)!==b&&(h.set(R,b),R.update())}function Ve(R,b){let q=R.colorSpace,ue=R.format,ae=R.type;return R.isCompressedTexture===!0||R.isVideoTexture===!0||q!==lr&&q!==gs&&(pt.getTransfer(q)===Tt?(ue!==Di||ae!==Xn)&&$e("WebGLTextures: sRGB encoded textures have to use RGBAFormat and UnsignedByteType."):et("WebGLTextures: Unsupported texture color space:",q)),b}function Ye(R){return typeof HTMLImageElement<"u"&&R instanceof HTMLImageElement?(c.width=R.naturalWidth||R.width,c.height=R.naturalHeight||R.height):typeof VideoFrame<"u"&&R instanceof VideoFrame?(c.width=R.displayWidth,c.height=R.displayHeight):(c.width=R.width,c.height=R.height),c}this.allocateTextureUnit=de,this.resetTextureUnits=ee,this.getTextureUnits=re,this.setTextureUnits=fe,this.setTexture2D=ge,this.setTexture2DArray=ve,this.setTexture3D=Re,this.setTextureCube=Me,this.rebindTextures=$t,this.setupRenderTarget=sn,this.updateRenderTargetMipmap=O,this.updateMultisampleRenderTarget=Ze,this.setupDepthRenderbuffer=fn,this.setupFrameBufferTexture=Pt,this.useMultisampledRTT=we,this.dispose=W}function Nw(i,e){function t(n,s=gs){let r,o=pt.getTransfer(s);if(n===Xn)return i.UNSIGNED_BYTE;if(n===Dc)return i.UNSIGNED_SHORT_4_4_4_4;if(n===Nc)return i.UNSIGNED_SHORT_5_5_5_1;if(n===md)return i.UNSIGNED_INT_5_9_9_9_REV;if(n===gd)return i.UNSIGNED_INT_10F_11F_11F_REV;if(n===fd)return i.BYTE;if(n===pd)return i.SHORT;if(n===Hs)return i.UNSIGNED_SHORT;if(n===vo)return i.INT;if(n===hi)return i.UNSIGNED_INT;if(n===Ii)return i.FLOAT;if(n===Li)return i.HALF_FLOAT;if(n===_d)return i.ALPHA;if(n===xd)return i.RGB;if(n===Di)return i.RGBA;if(n===us)return i.DEPTH_COMPONENT;if(n===ms)return i.DEPTH_STENCIL;if(n===vd)return i.RED;if(n===yo)return i.RED_INTEGER;if(n===Vs)return i.RG;if(n===Uc)return i.RG_INTEGER;if(n===Oc)return i.RGBA_INTEGER;if(n===Ea||n===Ta||n===Aa||n===Ra)if(o===Tt)if(r=e.get("WEBGL_compressed_texture_s3tc_srgb"),r!==null){if(n===Ea)return r.COMPRESSED_SRGB_S3TC_DXT1_EXT;if(n===Ta)return r.COMPRESSED_SRGB_ALPHA_S3TC_DXT1_EXT;if(n===Aa)return r.COMPRESSED_SRGB_ALPHA_S3TC_DXT3_EXT;if(n===Ra)return r.COMPRESSED_SRGB_ALPHA_S3TC_DXT5_EXT}else return null;else if(r=e.get("WEBGL_compressed_texture_s3tc"),r!==null){if(n===Ea)return r.COMPRESSED_RGB_S3TC_DXT1_EXT;if(n===Ta)return r.COMPRESSED_RGBA_S3TC_DXT1_EXT;if(n===Aa)return r.COMPRESSED_RGBA_S3TC_DXT3_EXT;if(n===Ra)return r.COMPRESSED_RGBA_S3TC_DXT5_EXT}else return null;if(n===Fc||n===Bc||n===kc||n===zc)if(r=e.get("WEBGL_compressed_texture_pvrtc"),r!==null){if(n===Fc)return r.COMPRESSED_RGB_PVRTC_4BPPV1_IMG;if(n===Bc)return r.COMPRESSED_RGB_PVRTC_2BPPV1_IMG;if(n===kc)return r.COMPRESSED_RGBA_PVRTC_4BPPV1_IMG;if(n===zc)return r.COMPRESSED_RGBA_PVRTC_2BPPV1_IMG}else return null;if(n===Hc||n===Vc||n===Gc||n===Wc||n===Xc||n===Ca||n===qc)if(r=e.get("WEBGL_compressed_texture_etc"),r!==null){if(n===Hc||n===Vc)return o===Tt?r.COMPRESSED_SRGB8_ETC2:r.COMPRESSED_RGB8_ETC2;if(n===Gc)return o===Tt?r.COMPRESSED_SRGB8_ALPHA8_ETC2_EAC:r.COMPRESSED_RGBA8_ETC2_EAC;if(n===Wc)return r.COMPRESSED_R11_EAC;if(n===Xc)return r.COMPRESSED_SIGNED_R11_EAC;if(n===Ca)return r.COMPRESSED_RG11_EAC;if(n===qc)return r.COMPRESSED_SIGNED_RG11_EAC}else return null;if(n===Yc||n===$c||n===Zc||n===Kc||n===Jc||n===jc||n===Qc||n===eh||n===th||n===nh||n===ih||n===sh||n===rh||n===oh)if(r=e.get("WEBGL_compressed_texture_astc"),r!==null){if(n===Yc)return o===Tt?r.COMPRESSED_SRGB8_ALPHA8_ASTC_4x4_KHR:r.COMPRESSED_RGBA_ASTC_4x4_KHR;if(n===$c)return o===Tt?r.COMPRESSED_SRGB8_ALPHA8_ASTC_5x4_KHR:r.COMPRESSED_RGBA_ASTC_5x4_KHR;if(n===Zc)return o===Tt?r.COMPRESSED_SRGB8_ALPHA8_ASTC_5x5_KHR:r.COMPRESSED_RGBA_ASTC_5x5_KHR;if(n===Kc)return o===Tt?r.COMPRESSED_SRGB8_ALPHA8_ASTC_6x5_KHR:r.COMPRESSED_RGBA_ASTC_6x5_KHR;if(n===Jc)return o===Tt?r.COMPRESSED_SRGB8_ALPHA8_ASTC_6x6_KHR:r.COMPRESSED_RGBA_ASTC_6x6_KHR;if(n===jc)return o===Tt?r.COMPRESSED_SRGB8_ALPHA8_ASTC_8x5_KHR:r.COMPRESSED_RGBA_ASTC_8x5_KHR;if(n===Qc)return o===Tt?r.COMPRESSED_SRGB8_ALPHA8_ASTC_8x6_KHR:r.COMPRESSED_RGBA_ASTC_8x6_KHR;if(n===eh)return o===Tt?r.COMPRESSED_SRGB8_ALPHA8_ASTC_8x8_KHR:r.COMPRESSED_RGBA_ASTC_8x8_KHR;if(n===th)return o===Tt?r.COMPRESSED_SRGB8_ALPHA8_ASTC_10x5_KHR:r.COMPRESSED_RGBA_ASTC_10x5_KHR;if(n===nh)return o===Tt?r.COMPRESSED_SRGB8_ALPHA8_ASTC_10x6_KHR:r.COMPRESSED_RGBA_ASTC_10x6_KHR;if(n===ih)return o===Tt?r.COMPRESSED_SRGB8_ALPHA8_ASTC_10x8_KHR:r.COMPRESSED_RGBA_ASTC_10x8_KHR;if(n===sh)return o===Tt?r.COMPRESSED_SRGB8_ALPHA8_ASTC_10x10_KHR:r.COMPRESSED_RGBA_ASTC_10x10_KHR;if(n===rh)return o===Tt?r.COMPRESSED_SRGB8_ALPHA8_ASTC_12x10_KHR:r.COMPRESSED_RGBA_ASTC_12x10_KHR;if(n===oh)return o===Tt?r.COMPRESSED_SRGB8_ALPHA8_ASTC_12x12_KHR:r.COMPRESSED_RGBA_ASTC_12x12_KHR}else return null;if(n===ah||n===lh||n===ch)if(r=e.get("EXT_texture_compression_bptc"),r!==null){if(n===ah)return o===Tt?r.COMPRESSED_SRGB_ALPHA_BPTC_UNORM_EXT:r.COMPRESSED_RGBA_BPTC_UNORM_EXT;if(n===lh)return r.COMPRESSED_RGB_BPTC_SIGNED_FLOAT_EXT;if(n===ch)return r.COMPRESSED_RGB_BPTC_UNSIGNED_FLOAT_EXT}else return null;if(n===hh||n===uh||n===Pa||n===dh)if(r=e.get("EXT_texture_compression_rgtc"),r!==null){if(n===hh)return r.COMPRESSED_RED_RGTC1_EXT;if(n===uh)return r.COMPRESSED_SIGNED_RED_RGTC1_EXT;if(n===Pa)return r.COMPRESSED_RED_GREEN_RGTC2_EXT;if(n===dh)return r.COMPRESSED_SIGNED_RED_GREEN_RGTC2_EXT}else return null;return n===xr?i.UNSIGNED_INT_24_8:i[n]!==void 0?i[n]:null}return{convert:t}}var Uw=`
void main() {

	gl_Position = vec4( position, 1.0 );

}`,Ow=`
uniform sampler2DArray depthColor;
uniform float depthWidth;
uniform float depthHeight;

void main() {

	vec2 coord = vec2( gl_FragCoord.x / depthWidth, gl_FragCoord.y / depthHeight );

	if ( coord.x >= 1.0 ) {

		gl_FragDepth = texture( depthColor, vec3( coord.x - 1.0, coord.y, 1 ) ).r;

	} else {

		gl_FragDepth = texture( depthColor, vec3( coord.x, coord.y, 0 ) ).r;

	}

}`,qd=class{constructor(){this.texture=null,this.mesh=null,this.depthNear=0,this.depthFar=0}init(e,t){if(this.texture===null){let n=new ma(e.texture);(e.depthNear!==t.depthNear||e.depthFar!==t.depthFar)&&(this.depthNear=e.depthNear,this.depthFar=e.depthFar),this.texture=n}}getMesh(e){if(this.texture!==null&&this.mesh===null){let t=e.cameras[0].viewport,n=new xi({vertexShader:Uw,fragmentShader:Ow,uniforms:{depthColor:{value:this.texture},depthWidth:{value:t.z},depthHeight:{value:t.w}}});this.mesh=new dn(new xa(20,20),n)}return this.mesh}reset(){this.texture=null,this.mesh=null}getDepthTexture(){return this.texture}},Yd=class extends Ci{constructor(e,t){super();let n=this,s=null,r=1,o=null,a="local-floor",l=1,c=null,h=null,u=null,d=null,f=null,p=null,y=typeof XRWebGLBinding<"u",m=new qd,g={},v=t.getContextAttributes(),A=null,S=null,C=[],T=[],x=new ze,E=null,B=null,N=new Vn;N.viewport=new Ot;let D=new Vn;D.viewport=new Ot;let G=[N,D],V=new Rc,I=null,W=null;this.cameraAutoUpdate=!0,this.enabled=!1,this.isPresenting=!1,this.getController=function(te){let ge=C[te];return ge===void 0&&(ge=new co,C[te]=ge),ge.getTargetRaySpace()},this.getControllerGrip=function(te){let ge=C[te];return ge===void 0&&(ge=new co,C[te]=ge),ge.getGripSpace()},this.getHand=function(te){let ge=C[te];return ge===void 0&&(ge=new co,C[te]=ge),ge.getHandSpace()};function $(te){let ge=T.indexOf(te.inputSource);if(ge===-1)return;let ve=C[ge];ve!==void 0&&(ve.update(te.inputSource,te.frame,c||o),ve.dispatchEvent({type:te.type,data:te.inputSource}))}function z(){s.removeEventListener("select",$),s.removeEventListener("selectstart",$),s.removeEventListener("selectend",$),s.removeEventListener("squeeze",$),s.removeEventListener("squeezestart",$),s.removeEventListener("squeezeend",$),s.removeEventListener("end",z),s.removeEventListener("inputsourceschange",ce);for(let te=0;te<C.length;te++){let ge=T[te];ge!==null&&(T[te]=null,C[te].disconnect(ge))}I=null,W=null,m.reset();for(let te in g)delete g[te];if(e.setRenderTarget(A),f=null,d=null,u=null,s=null,S=null,de.stop(),n.isPresenting=!1,e.setPixelRatio(E),e.setSize(x.width,x.height,!1),B!==null){let te=B.camera;te.fov=B.fov,te.zoom=B.zoom,te.updateProjectionMatrix(),B=null}n.dispatchEvent({type:"sessionend"})}this.setFramebufferScaleFactor=function(te){r=te,n.isPresenting===!0&&$e("WebXRManager: Cannot change framebuffer scale while presenting.")},this.setReferenceSpaceType=function(te){a=te,n.isPresenting===!0&&$e("WebXRManager: Cannot change reference space type while presenting.")},this.getReferenceSpace=function(){return c||o},this.setReferenceSpace=function(te){c=te},this.getBaseLayer=function(){return d!==null?d:f},this.getBinding=function(){return u===null&&y&&(u=new XRWebGLBinding(s,t)),u},this.getFrame=function(){return p},this.getSession=function(){return s},this.setSession=async function(te){if(s=te,s!==null){if(A=e.getRenderTarget(),s.addEventListener("select",$),s.addEventListener("selectstart",$),s.addEventListener("selectend",$),s.addEventListener("squeeze",$),s.addEventListener("squeezestart",$),s.addEventListener("squeezeend",$),s.addEventListener("end",z),s.addEventListener("inputsourceschange",ce),v.xrCompatible!==!0&&await t.makeXRCompatible(),E=e.getPixelRatio(),e.getSize(x),y&&"createProjectionLayer"in XRWebGLBinding.prototype){let ve=null,Re=null,Me=null;v.depth&&(Me=v.stencil?t.DEPTH24_STENCIL8:t.DEPTH_COMPONENT24,ve=v.stencil?ms:us,Re=v.stencil?xr:hi);let Xe={colorFormat:t.RGBA8,depthFormat:Me,scaleFactor:r};u=this.getBinding(),d=u.createProjectionLayer(Xe),s.updateRenderState({layers:[d]}),e.setPixelRatio(1),e.setSize(d.textureWidth,d.textureHeight,!1),S=new Pn(d.textureWidth,d.textureHeight,{format:Di,type:Xn,depthTexture:new Pi(d.textureWidth,d.textureHeight,Re,void 0,void 0,void 0,void 0,void 0,void 0,ve),stencilBuffer:v.stencil,colorSpace:e.outputColorSpace,samples:v.antialias?4:0,resolveDepthBuffer:d.ignoreDepthValues===!1,resolveStencilBuffer:d.ignoreDepthValues===!1,storeMultisampledDepthBuffer:d.ignoreDepthValues===!1,storeMultisampledStencilBuffer:d.ignoreDepthValues===!1})}else{let ve={antialias:v.antialias,alpha:!0,depth:v.depth,stencil:v.stencil,framebufferScaleFactor:r};f=new XRWebGLLayer(s,t,ve),s.updateRenderState({baseLayer:f}),e.setPixelRatio(1),e.setSize(f.framebufferWidth,f.framebufferHeight,!1),S=new Pn(f.framebufferWidth,f.framebufferHeight,{format:Di,type:Xn,colorSpace:e.outputColorSpace,stencilBuffer:v.stencil,resolveDepthBuffer:f.ignoreDepthValues===!1,resolveStencilBuffer:f.ignoreDepthValues===!1,storeMultisampledDepthBuffer:f.ignoreDepthValues===!1,storeMultisampledStencilBuffer:f.ignoreDepthValues===!1})}S.isXRRenderTarget=!0,this.setFoveation(l),c=null,o=await s.requestReferenceSpace(a),de.setContext(s),de.start(),n.isPresenting=!0,n.dispatchEvent({type:"sessionstart"})}},this.getEnvironmentBlendMode=function(){if(s!==null)return s.environmentBlendMode},this.getDepthTexture=function(){return m.getDepthTexture()};function ce(te){for(let ge=0;ge<te.removed.length;ge++){let ve=te.removed[ge],Re=T.indexOf(ve);Re>=0&&(T[Re]=null,C[Re].disconnect(ve))}for(let ge=0;ge<te.added.length;ge++){let ve=te.added[ge],Re=T.indexOf(ve);if(Re===-1){for(let Xe=0;Xe<C.length;Xe++)if(Xe>=T.length){T.push(ve),Re=Xe;break}else if(T[Xe]===null){T[Xe]=ve,Re=Xe;break}if(Re===-1)break}let Me=C[Re];Me&&Me.connect(ve)}}function K(te,ge){ge===null?te.matrixWorld.copy(te.matrix):te.matrixWorld.multiplyMatrices(ge.matrixWorld,te.matrix),te.matrixWorldInverse.copy(te.matrixWorld).invert()}this.updateCamera=function(te){if(s===null)return;let ge=te.near,ve=te.far;m.texture!==null&&(m.depthNear>0&&(ge=m.depthNear),m.depthFar>0&&(ve=m.depthFar)),V.near=D.near=N.near=ge,V.far=D.far=N.far=ve,(I!==V.near||W!==V.far)&&(s.updateRenderState({depthNear:V.near,depthFar:V.far}),I=V.near,W=V.far),V.layers.mask=te.layers.mask|6,N.layers.mask=V.layers.mask&-5,D.layers.mask=V.layers.mask&-3;let Re=te.parent,Me=V.cameras;K(V,Re);for(let Xe=0;Xe<Me.length;Xe++)K(Me[Xe],Re);V.projectionMatrix.copy(N.projectionMatrix),V.projectionMatrixInverse.copy(N.projectionMatrixInverse),B===null&&te.isPerspectiveCamera&&(B={camera:te,fov:te.fov,zoom:te.zoom}),ee(te,V,Re)};function ee(te,ge,ve){ve===null?te.matrix.copy(ge.matrixWorld):(te.matrix.copy(ve.matrixWorld),te.matrix.invert(),te.matrix.multiply(ge.matrixWorld)),te.matrix.decompose(te.position,te.quaternion,te.scale),te.updateMatrixWorld(!0),te.projectionMatrix.copy(ge.projectionMatrix),te.projectionMatrixInverse.copy(ge.projectionMatrixInverse),te.isPerspectiveCamera&&(te.fov=ao*2*Math.atan(1/te.projectionMatrix.elements[5]),te.zoom=1)}this.getCamera=function(){return V},this.getFoveation=function(){if(!(d===null&&f===null))return l},this.setFoveation=function(te){l=te,d!==null&&(d.fixedFoveation=te),f!==null&&f.fixedFoveation!==void 0&&(f.fixedFoveation=te)},this.hasDepthSensing=function(){return m.texture!==null},this.getDepthSensingMesh=function(){return m.getMesh(V)},this.getCameraTexture=function(te){return g[te]};let re=null;function fe(te,ge){if(h=ge.getViewerPose(c||o),p=ge,h!==null){let ve=h.views;f!==null&&(e.setRenderTargetFramebuffer(S,f.framebuffer),e.setRenderTarget(S));let Re=!1;ve.length!==V.cameras.length&&(V.cameras.length=0,Re=!0);for(let Ge=0;Ge<ve.length;Ge++){let ut=ve[Ge],at=null;if(f!==null)at=f.getViewport(ut);else{let Wt=u.getViewSubImage(d,ut);at=Wt.viewport,Ge===0&&(e.setRenderTargetTextures(S,Wt.colorTexture,Wt.depthStencilTexture),e.setRenderTarget(S))}let nt=G[Ge];nt===void 0&&(nt=new Vn,nt.layers.enable(Ge),nt.viewport=new Ot,G[Ge]=nt),nt.matrix.fromArray(ut.transform.matrix),nt.matrix.decompose(nt.position,nt.quaternion,nt.scale),nt.projectionMatrix.fromArray(ut.projectionMatrix),nt.projectionMatrixInverse.copy(nt.projectionMatrix).invert(),nt.viewport.set(at.x,at.y,at.width,at.height),Ge===0&&(V.matrix.copy(nt.matrix),V.matrix.decompose(V.position,V.quaternion,V.scale)),Re===!0&&V.cameras.push(nt)}let Me=s.enabledFeatures;if(Me&&Me.includes("depth-sensing")&&s.depthUsage=="gpu-optimized"&&y){u=n.getBinding();let Ge=u.getDepthInformation(ve[0]);Ge&&Ge.isValid&&Ge.texture&&m.init(Ge,s.renderState)}if(Me&&Me.includes("camera-access")&&y){e.state.unbindTexture(),u=n.getBinding();for(let Ge=0;Ge<ve.length;Ge++){let ut=ve[Ge].camera;if(ut){let at=g[ut];at||(at=new ma,g[ut]=at);let nt=u.getCameraImage(ut);at.sourceTexture=nt}}}}for(let ve=0;ve<C.length;ve++){let Re=T[ve],Me=C[ve];Re!==null&&Me!==void 0&&Me.update(Re,ge,c||o)}re&&re(te,ge),ge.detectedPlanes&&n.dispatchEvent({type:"planesdetected",data:ge}),p=null}let de=new Kg;de.setAnimationLoop(fe),this.setAnimationLoop=function(te){re=te},this.dispose=function(){}}},Fw=new Ut,o0=new tt;o0.set(-1,0,0,0,1,0,0,0,1);function Bw(i,e){function t(m,g){m.matrixAutoUpdate===!0&&m.updateMatrix(),g.value.copy(m.matrix)}function n(m,g){g.color.getRGB(m.fogColor.value,Cd(i)),g.isFog?(m.fogNear.value=g.near,m.fogFar.value=g.far):g.isFogExp2&&(m.fogDensity.value=g.density)}function s(m,g,v,A,S){g.isNodeMaterial?g.uniformsNeedUpdate=!1:g.isMeshBasicMaterial?r(m,g):g.isMeshLambertMaterial?(r(m,g),g.envMap&&(m.envMapIntensity.value=g.envMapIntensity)):g.isMeshToonMaterial?(r(m,g),u(m,g)):g.isMeshPhongMaterial?(r(m,g),h(m,g),g.envMap&&(m.envMapIntensity.value=g.envMapIntensity)):g.isMeshStandardMaterial?(r(m,g),d(m,g),g.isMeshPhysicalMaterial&&f(m,g,S)):g.isMeshMatcapMaterial?(r(m,g),p(m,g)):g.isMeshDepthMaterial?r(m,g):g.isMeshDistanceMaterial?(r(m,g),y(m,g)):g.isMeshNormalMaterial?r(m,g):g.isLineBasicMaterial?(o(m,g),g.isLineDashedMaterial&&a(m,g)):g.isPointsMaterial?l(m,g,v,A):g.isSpriteMaterial?c(m,g):g.isShadowMaterial?(m.color.value.copy(g.color),m.opacity.value=g.opacity):g.isShaderMaterial&&(g.uniformsNeedUpdate=!1)}function r(m,g){m.opacity.value=g.opacity,g.color&&m.diffuse.value.copy(g.color),g.emissive&&m.emissive.value.copy(g.emissive).multiplyScalar(g.emissiveIntensity),g.map&&(m.map.value=g.map,t(g.map,m.mapTransform)),g.alphaMap&&(m.alphaMap.value=g.alphaMap,t(g.alphaMap,m.alphaMapTransform)),g.bumpMap&&(m.bumpMap.value=g.bumpMap,t(g.bumpMap,m.bumpMapTransform),m.bumpScale.value=g.bumpScale,g.side===Wn&&(m.bumpScale.value*=-1)),g.normalMap&&(m.normalMap.value=g.normalMap,t(g.normalMap,m.normalMapTransform),m.normalScale.value.copy(g.normalScale),g.side===Wn&&m.normalScale.value.negate()),g.displacementMap&&(m.displacementMap.value=g.displacementMap,t(g.displacementMap,m.displacementMapTransform),m.displacementScale.value=g.displacementScale,m.displacementBias.value=g.displacementBias),g.emissiveMap&&(m.emissiveMap.value=g.emissiveMap,t(g.emissiveMap,m.emissiveMapTransform)),g.specularMap&&(m.specularMap.value=g.specularMap,t(g.specularMap,m.specularMapTransform)),g.alphaTest>0&&(m.alphaTest.value=g.alphaTest);let v=e.get(g),A=v.envMap,S=v.envMapRotation;A&&(m.envMap.value=A,m.envMapRotation.value.setFromMatrix4(Fw.makeRotationFromEuler(S)).transpose(),A.isCubeTexture&&A.isRenderTargetTexture===!1&&m.envMapRotation.value.premultiply(o0),m.reflectivity.value=g.reflectivity,m.ior.value=g.ior,m.refractionRatio.value=g.refractionRatio),g.lightMap&&(m.lightMap.value=g.lightMap,m.lightMapIntensity.value=g.lightMapIntensity,t(g.lightMap,m.lightMapTransform)),g.aoMap&&(m.aoMap.value=g.aoMap,m.aoMapIntensity.value=g.aoMapIntensity,t(g.aoMap,m.aoMapTransform))}function o(m,g){m.diffuse.value.copy(g.color),m.opacity.value=g.opacity,g.map&&(m.map.value=g.map,t(g.map,m.mapTransform))}function a(m,g){m.dashSize.value=g.dashSize,m.totalSize.value=g.dashSize+g.gapSize,m.scale.value=g.scale}function l(m,g,v,A){m.diffuse.value.copy(g.color),m.opacity.value=g.opacity,m.size.value=g.size*v,m.scale.value=A*.5,g.map&&(m.map.value=g.map,t(g.map,m.uvTransform)),g.alphaMap&&(m.alphaMap.value=g.alphaMap,t(g.alphaMap,m.alphaMapTransform)),g.alphaTest>0&&(m.alphaTest.value=g.alphaTest)}function c(m,g){m.diffuse.value.copy(g.color),m.opacity.value=g.opacity,m.rotation.value=g.rotation,g.map&&(m.map.value=g.map,t(g.map,m.mapTransform)),g.alphaMap&&(m.alphaMap.value=g.alphaMap,t(g.alphaMap,m.alphaMapTransform)),g.alphaTest>0&&(m.alphaTest.value=g.alphaTest)}function h(m,g){m.specular.value.copy(g.specular),m.shininess.value=Math.max(g.shininess,1e-4)}function u(m,g){g.gradientMap&&(m.gradientMap.value=g.gradientMap)}function d(m,g){m.metalness.value=g.metalness,g.metalnessMap&&(m.metalnessMap.value=g.metalnessMap,t(g.metalnessMap,m.metalnessMapTransform)),m.roughness.value=g.roughness,g.roughnessMap&&(m.roughnessMap.value=g.roughnessMap,t(g.roughnessMap,m.roughnessMapTransform)),g.envMap&&(m.envMapIntensity.value=g.envMapIntensity)}function f(m,g,v){m.ior.value=g.ior,g.diffuseRoughness>0&&(m.diffuseRoughness.value=g.diffuseRoughness,g.diffuseRoughnessMap&&(m.diffuseRoughnessMap.value=g.diffuseRoughnessMap,t(g.diffuseRoughnessMap,m.diffuseRoughnessMapTransform))),g.sheen>0&&(m.sheenColor.value.copy(g.sheenColor).multiplyScalar(g.sheen),m.sheenRoughness.value=g.sheenRoughness,g.sheenColorMap&&(m.sheenColorMap.value=g.sheenColorMap,t(g.sheenColorMap,m.sheenColorMapTransform)),g.sheenRoughnessMap&&(m.sheenRoughnessMap.value=g.sheenRoughnessMap,t(g.sheenRoughnessMap,m.sheenRoughnessMapTransform))),g.clearcoat>0&&(m.clearcoat.value=g.clearcoat,m.clearcoatRoughness.value=g.clearcoatRoughness,g.clearcoatMap&&(m.clearcoatMap.value=g.clearcoatMap,t(g.clearcoatMap,m.clearcoatMapTransform)),g.clearcoatRoughnessMap&&(m.clearcoatRoughnessMap.value=g.clearcoatRoughnessMap,t(g.clearcoatRoughnessMap,m.clearcoatRoughnessMapTransform)),g.clearcoatNormalMap&&(m.clearcoatNormalMap.value=g.clearcoatNormalMap,t(g.clearcoatNormalMap,m.clearcoatNormalMapTransform),m.clearcoatNormalScale.value.copy(g.clearcoatNormalScale),g.side===Wn&&m.clearcoatNormalScale.value.negate())),g.dispersion>0&&(m.dispersion.value=g.dispersion),g.retroreflectivity>0&&(m.retroreflectivity.value=g.retroreflectivity),g.iridescence>0&&(m.iridescence.value=g.iridescence,m.iridescenceIOR.value=g.iridescenceIOR,m.iridescenceThicknessMinimum.value=g.iridescenceThicknessMinimum,m.iridescenceThicknessMaximum.value=g.iridescenceThicknessMaximum,g.iridescenceMap&&(m.iridescenceMap.value=g.iridescenceMap,t(g.iridescenceMap,m.iridescenceMapTransform)),g.iridescenceThicknessMap&&(m.iridescenceThicknessMap.value=g.iridescenceThicknessMap,t(g.iridescenceThicknessMap,m.iridescenceThicknessMapTransform))),g.transmission>0&&(m.transmission.value=g.transmission,m.transmissionSamplerMap.value=v.texture,m.transmissionSamplerSize.value.set(v.width,v.height),g.transmissionMap&&(m.transmissionMap.value=g.transmissionMap,t(g.transmissionMap,m.transmissionMapTransform)),m.thickness.value=g.thickness,g.thicknessMap&&(m.thicknessMap.value=g.thicknessMap,t(g.thicknessMap,m.thicknessMapTransform)),m.attenuationDistance.value=g.attenuationDistance,m.attenuationColor.value.copy(g.attenuationColor)),g.anisotropy>0&&(m.anisotropyVector.value.set(g.anisotropy*Math.cos(g.anisotropyRotation),g.anisotropy*Math.sin(g.anisotropyRotation)),g.anisotropyMap&&(m.anisotropyMap.value=g.anisotropyMap,t(g.anisotropyMap,m.anisotropyMapTransform))),m.specularIntensity.value=g.specularIntensity,m.specularColor.value.copy(g.specularColor),g.specularColorMap&&(m.specularColorMap.value=g.specularColorMap,t(g.specularColorMap,m.specularColorMapTransform)),g.specularIntensityMap&&(m.specularIntensityMap.value=g.specularIntensityMap,t(g.specularIntensityMap,m.specularIntensityMapTransform))}function p(m,g){g.matcap&&(m.matcap.value=g.matcap)}function y(m,g){let v=e.get(g).light;m.referencePosition.value.setFromMatrixPosition(v.matrixWorld),m.nearDistance.value=v.shadow.camera.near,m.farDistance.value=v.shadow.camera.far}return{refreshFogUniforms:n,refreshMaterialUniforms:s}}function kw(i,e,t,n){let s={},r={};function o(v,A){let S=A.program;n.uniformBlockBinding(v,S,s[v.id])}function a(v,A){let S=s[v.id];S===void 0&&(p(v),S=l(v),s[v.id]=S,v.addEventListener("dispose",m));let C=A.program;n.updateUBOMapping(v,C);let T=e.render.frame;r[v.id]!==T&&(c(v),r[v.id]=T)}function l(v){let A=i.createBuffer(),S=v.__size,C=v.usage;return i.bindBuffer(i.UNIFORM_BUFFER,A),i.bufferData(i.UNIFORM_BUFFER,S,C),i.bindBuffer(i.UNIFORM_BUFFER,null),A}function c(v){let A=s[v.id],S=v.uniforms,C=v.__cache;i.bindBuffer(i.UNIFORM_BUFFER,A);for(let T=0,x=S.length;T<x;T++){let E=S[T];if(Array.isArray(E))for(let B=0,N=E.length;B<N;B++)h(E[B],T,B,C);else h(E,T,0,C)}i.bindBuffer(i.UNIFORM_BUFFER,null)}function h(v,A,S,C){if(d(v,A,S,C)===!0){let T=v.__offset,x=v.value;if(Array.isArray(x)){let E=0;for(let B=0;B<x.length;B++){let N=x[B],D=y(N,!0);u(N,v.__data,E),E+=D.storage/Float32Array.BYTES_PER_ELEMENT}}else u(x,v.__data,0);i.bufferSubData(i.UNIFORM_BUFFER,T,v.__data)}}function u(v,A,S){typeof v=="number"||typeof v=="boolean"?A[S]=v:v.isMatrix3?(A[S]=v.elements[0],A[S+1]=v.elements[1],A[S+2]=v.elements[2],A[S+3]=0,A[S+4]=v.elements[3],A[S+5]=v.elements[4],A[S+6]=v.elements[5],A[S+7]=0,A[S+8]=v.elements[6],A[S+9]=v.elements[7],A[S+10]=v.elements[8],A[S+11]=0):ArrayBuffer.isView(v)?A.set(v.subarray(0,A.length-S),S):v.toArray(A,S)}function d(v,A,S,C){let T=v.value,x=A+"_"+S;if(Array.isArray(T)){C[x]===void 0&&(C[x]=[]);let E=C[x],B=!1;for(let N=0;N<T.length;N++)f(T[N],E,N)===!0&&(B=!0);return B}return f(T,C,x)}function f(v,A,S){if(A[S]===void 0)return typeof v=="number"||typeof v=="boolean"?A[S]=v:ArrayBuffer.isView(v)?A[S]=v.slice():A[S]=v.clone(),!0;{let C=A[S];if(typeof v=="number"||typeof v=="boolean"){if(C!==v)return A[S]=v,!0}else{if(ArrayBuffer.isView(v))return!0;if(C.equals(v)===!1)return C.copy(v),!0}}return!1}function p(v){let A=v.uniforms,S=0,C=16;for(let x=0,E=A.length;x<E;x++){let B=Array.isArray(A[x])?A[x]:[A[x]];for(let N=0,D=B.length;N<D;N++){let G=B[N],V=Array.isArray(G.value)?G.value:[G.value],I=Array.isArray(A[x])||Array.isArray(G.value),W=S;for(let z=0,ce=V.length;z<ce;z++){let K=V[z],ee=y(K,I),re=S%C,fe=re%ee.boundary,de=re+fe;S+=fe,de!==0&&C-de<ee.storage&&(S+=C-de),z===0&&(W=S),S+=ee.storage}let $=G.type==="int"?Int32Array:G.type==="uint"?Uint32Array:Float32Array;G.__data=new $((S-W)/Float32Array.BYTES_PER_ELEMENT),G.__offset=W}}let T=S%C;return T>0&&(S+=C-T),v.__size=S,v.__cache={},this}function y(v,A){let S={boundary:0,storage:0};return typeof v=="number"||typeof v=="boolean"?(S.boundary=4,S.storage=4):v.isVector2?(S.boundary=8,S.storage=8):v.isVector3||v.isColor?(S.boundary=16,S.storage=12):v.isVector4?(S.boundary=16,S.storage=16):v.isMatrix3?(S.boundary=16,S.storage=48):v.isMatrix4?(S.boundary=16,S.storage=64):v.isTexture?$e("WebGLRenderer: Texture samplers can not be part of an uniforms group."):ArrayBuffer.isView(v)?(S.boundary=16,S.storage=v.byteLength):$e("WebGLRenderer: Unsupported uniform value type.",v),A===!0&&(S.boundary=16,S.storage=Math.ceil(S.storage/16)*16),S}function m(v){let A=v.target;A.removeEventListener("dispose",m),i.deleteBuffer(s[A.id]),delete s[A.id],delete r[A.id]}function g(){for(let v in s)i.deleteBuffer(s[v]);s={},r={}}return{bind:o,update:a,dispose:g}}var zw=new Uint16Array([12469,15057,12620,14925,13266,14620,13807,14376,14323,13990,14545,13625,14713,13328,14840,12882,14931,12528,14996,12233,15039,11829,15066,11525,15080,11295,15085,10976,15082,10705,15073,10495,13880,14564,13898,14542,13977,14430,14158,14124,14393,13732,14556,13410,14702,12996,14814,12596,14891,12291,14937,11834,14957,11489,14958,11194,14943,10803,14921,10506,14893,10278,14858,9960,14484,14039,14487,14025,14499,13941,14524,13740,14574,13468,14654,13106,14743,12678,14818,12344,14867,11893,14889,11509,14893,11180,14881,10751,14852,10428,14812,10128,14765,9754,14712,9466,14764,13480,14764,13475,14766,13440,14766,13347,14769,13070,14786,12713,14816,12387,14844,11957,14860,11549,14868,11215,14855,10751,14825,10403,14782,10044,14729,9651,14666,9352,14599,9029,14967,12835,14966,12831,14963,12804,14954,12723,14936,12564,14917,12347,14900,11958,14886,11569,14878,11247,14859,10765,14828,10401,14784,10011,14727,9600,14660,9289,14586,8893,14508,8533,15111,12234,15110,12234,15104,12216,15092,12156,15067,12010,15028,11776,14981,11500,14942,11205,14902,10752,14861,10393,14812,9991,14752,9570,14682,9252,14603,8808,14519,8445,14431,8145,15209,11449,15208,11451,15202,11451,15190,11438,15163,11384,15117,11274,15055,10979,14994,10648,14932,10343,14871,9936,14803,9532,14729,9218,14645,8742,14556,8381,14461,8020,14365,7603,15273,10603,15272,10607,15267,10619,15256,10631,15231,10614,15182,10535,15118,10389,15042,10167,14963,9787,14883,9447,14800,9115,14710,8665,14615,8318,14514,7911,14411,7507,14279,7198,15314,9675,15313,9683,15309,9712,15298,9759,15277,9797,15229,9773,15166,9668,15084,9487,14995,9274,14898,8910,14800,8539,14697,8234,14590,7790,14479,7409,14367,7067,14178,6621,15337,8619,15337,8631,15333,8677,15325,8769,15305,8871,15264,8940,15202,8909,15119,8775,15022,8565,14916,8328,14804,8009,14688,7614,14569,7287,14448,6888,14321,6483,14088,6171,15350,7402,15350,7419,15347,7480,15340,7613,15322,7804,15287,7973,15229,8057,15148,8012,15046,7846,14933,7611,14810,7357,14682,7069,14552,6656,14421,6316,14251,5948,14007,5528,15356,5942,15356,5977,15353,6119,15348,6294,15332,6551,15302,6824,15249,7044,15171,7122,15070,7050,14949,6861,14818,6611,14679,6349,14538,6067,14398,5651,14189,5311,13935,4958,15359,4123,15359,4153,15356,4296,15353,4646,15338,5160,15311,5508,15263,5829,15188,6042,15088,6094,14966,6001,14826,5796,14678,5543,14527,5287,14377,4985,14133,4586,13869,4257,15360,1563,15360,1642,15358,2076,15354,2636,15341,3350,15317,4019,15273,4429,15203,4732,15105,4911,14981,4932,14836,4818,14679,4621,14517,4386,14359,4156,14083,3795,13808,3437,15360,122,15360,137,15358,285,15355,636,15344,1274,15322,2177,15281,2765,15215,3223,15120,3451,14995,3569,14846,3567,14681,3466,14511,3305,14344,3121,14037,2800,13753,2467,15360,0,15360,1,15359,21,15355,89,15346,253,15325,479,15287,796,15225,1148,15133,1492,15008,1749,14856,1882,14685,1886,14506,1783,14324,1608,13996,1398,13702,1183]),$i=null;function Hw(){return $i===null&&($i=new hr(zw,16,16,Vs,Li),$i.name="DFG_LUT",$i.minFilter=Rn,$i.magFilter=Rn,$i.wrapS=Wi,$i.wrapT=Wi,$i.generateMipmaps=!1,$i.needsUpdate=!0),$i}var gh=class{constructor(e={}){let{canvas:t=vg(),context:n=null,depth:s=!0,stencil:r=!1,alpha:o=!1,antialias:a=!1,premultipliedAlpha:l=!0,preserveDrawingBuffer:c=!1,powerPreference:h="default",failIfMajorPerformanceCaveat:u=!1,reversedDepthBuffer:d=!1,outputBufferType:f=Xn}=e;this.isWebGLRenderer=!0;let p;if(n!==null){if(typeof WebGLRenderingContext<"u"&&n instanceof WebGLRenderingContext)throw new Error("THREE.WebGLRenderer: WebGL 1 is not supported since r163.");p=n.getContextAttributes().alpha}else p=o;let y=f,m=new Set([Oc,Uc,yo]),g=new Set([Xn,hi,Hs,xr,Dc,Nc]),v=new Uint32Array(4),A=new Int32Array(4),S={textures:[],min:[],max:[],resolution:[]},C=null,T=null,x=[],E=[],B=null;this.domElement=t,this.debug={checkShaderErrors:!0,diagnostics:{keywords:!1},onShaderError:null},this.autoClear=!0,this.autoClearColor=!0,this.autoClearDepth=!0,this.autoClearStencil=!0,this.sortObjects=!0,this.clippingPlanes=[],this.localClippingEnabled=!1,this.toneMapping=Yi,this.toneMappingExposure=1,this.transmissionResolutionScale=1;let N=this,D=!1,G=null,V=null,I=null,W=null;this._outputColorSpace=ri;let $=0,z=0,ce=null,K=-1,ee=null,re=new Ot,fe=new Ot,de=null,te=new gt(0),ge=0,ve=t.width,Re=t.height,Me=1,Xe=null,st=null,Ge=new Ot(0,0,ve,Re),ut=new Ot(0,0,ve,Re),at=!1,nt=new ur,Wt=new sc,Ft=!1,nn=!1,Pt=new Ut,bn=new F,vt=new Ot,fn={background:null,fog:null,environment:null,overrideMaterial:null,isScene:!0},$t=!1;function sn(){return ce===null?Me:1}let O=n;function Pe(w,k){return t.getContext(w,k)}let Ze,rt,we,Lt,Ve,Ye,R,b,q,ue,ae,xe,ye,ne,se,me,U,oe,ie,Ee,_e,Se,We;try{let w={alpha:!0,depth:s,stencil:r,antialias:a,premultipliedAlpha:l,preserveDrawingBuffer:c,powerPreference:h,failIfMajorPerformanceCaveat:u};if("setAttribute"in t&&t.setAttribute("data-engine",`three.js r${"187"}`),t.addEventListener("webglcontextlost",Be,!1),t.addEventListener("webglcontextrestored",je,!1),t.addEventListener("webglcontextcreationerror",Ce,!1),O===null){let k="webgl2";if(O=Pe(k,w),O===null)throw Pe(k)?new Error("THREE.WebGLRenderer: Error creating WebGL context with your selected attributes."):new Error("THREE.WebGLRenderer: Error creating WebGL context.")}Je()}catch(w){throw t.removeEventListener("webglcontextlost",Be,!1),t.removeEventListener("webglcontextrestored",je,!1),t.removeEventListener("webglcontextcreationerror",Ce,!1),et("WebGLRenderer: "+w.message),w}function Je(){Ze=new jS(O),Ze.init(),_e=new Nw(O,Ze),rt=new HS(O,Ze,e,_e),we=new Lw(O,Ze),rt.reversedDepthBuffer&&d&&we.buffers.depth.setReversed(!0),V=O.createFramebuffer(),I=O.createFramebuffer(),W=O.createFramebuffer(),Lt=new tM(O),Ve=new xw,Ye=new Dw(O,Ze,we,Ve,rt,_e,Lt),R=new JS(N),b=new iy(O),Se=new kS(O,b),q=new QS(O,b,Lt,Se),ue=new iM(O,q,b,Se,Lt),oe=new nM(O,rt,Ye),se=new VS(Ve),ae=new _w(N,R,Ze,rt,Se,se),xe=new Bw(N,Ve),ye=new yw,ne=new Tw(Ze),U=new BS(N,R,we,ue,p,l),me=new Iw(N,ue,rt),We=new kw(O,Lt,rt,we),ie=new zS(O,Ze,Lt),Ee=new eM(O,Ze,Lt),Lt.programs=ae.programs,N.capabilities=rt,N.extensions=Ze,N.properties=Ve,N.renderLists=ye,N.shadowMap=me,N.state=we,N.info=Lt}y!==Xn&&(B=new rM(y,t.width,t.height,a,s,r));let he=new Yd(N,O);this.xr=he,this.getContext=function(){return O},this.getContextAttributes=function(){return O.getContextAttributes()},this.forceContextLoss=function(){let w=Ze.get("WEBGL_lose_context");w&&w.loseContext()},this.forceContextRestore=function(){let w=Ze.get("WEBGL_lose_context");w&&w.restoreContext()},this.getPixelRatio=function(){return Me},this.setPixelRatio=function(w){w!==void 0&&(Me=w,this.setSize(ve,Re,!1))},this.getSize=function(w){return w.set(ve,Re)},this.setSize=function(w,k,Q=!0){if(he.isPresenting){$e("WebGLRenderer: Can't change size while VR device is presenting.");return}ve=w,Re=k,t.width=Math.floor(w*Me),t.height=Math.floor(k*Me),Q===!0&&(t.style.width=w+"px",t.style.height=k+"px"),B!==null&&B.setSize(t.width,t.height),this.setViewport(0,0,w,k)},this.getDrawingBufferSize=function(w){return w.set(ve*Me,Re*Me).floor()},this.setDrawingBufferSize=function(w,k,Q){ve=w,Re=k,Me=Q,t.width=Math.floor(w*Q),t.height=Math.floor(k*Q),this.setViewport(0,0,w,k)},this.setEffects=function(w){if(y===Xn){et("WebGLRenderer: setEffects() requires outputBufferType set to HalfFloatType or FloatType.");return}if(w){for(let k=0;k<w.length;k++)if(w[k].isOutputPass===!0){$e("WebGLRenderer: OutputPass is not needed in setEffects(). Tone mapping and color space conversion are applied automatically.");break}}B.setEffects(w||[])},this.getCurrentViewport=function(w){return w.copy(re)},this.getViewport=function(w){return w.copy(Ge)},this.setViewport=function(w,k,Q,Y){w.isVector4?Ge.set(w.x,w.y,w.z,w.w):Ge.set(w,k,Q,Y),we.viewport(re.copy(Ge).multiplyScalar(sn()).round())},this.getScissor=function(w){return w.copy(ut)},this.setScissor=function(w,k,Q,Y){w.isVector4?ut.set(w.x,w.y,w.z,w.w):ut.set(w,k,Q,Y),we.scissor(fe.copy(ut).multiplyScalar(sn()).round())},this.getScissorTest=function(){return at},this.setScissorTest=function(w){we.setScissorTest(at=w)},this.setOpaqueSort=function(w){Xe=w},this.setTransparentSort=function(w){st=w},this.getClearColor=function(w){return w.copy(U.getClearColor())},this.setClearColor=function(){U.setClearColor(...arguments)},this.getClearAlpha=function(){return U.getClearAlpha()},this.setClearAlpha=function(){U.setClearAlpha(...arguments)},this.clear=function(w=!0,k=!0,Q=!0){let Y=0;if(w){let Z=!1;if(ce!==null){let Te=ce.texture.format;Z=m.has(Te)}if(Z){let Te=ce.texture.type,Ie=g.has(Te),Ae=U.getClearColor(),Le=U.getClearAlpha(),He=Ae.r,Qe=Ae.g,dt=Ae.b;Ie?(v[0]=He,v[1]=Qe,v[2]=dt,v[3]=Le,O.clearBufferuiv(O.COLOR,0,v)):(A[0]=He,A[1]=Qe,A[2]=dt,A[3]=Le,O.clearBufferiv(O.COLOR,0,A))}else Y|=O.COLOR_BUFFER_BIT}k&&(Y|=O.DEPTH_BUFFER_BIT,this.state.buffers.depth.setMask(!0)),Q&&(Y|=O.STENCIL_BUFFER_BIT,this.state.buffers.stencil.setMask(4294967295)),Y!==0&&O.clear(Y)},this.clearColor=function(){this.clear(!0,!1,!1)},this.clearDepth=function(){this.clear(!1,!0,!1)},this.clearStencil=function(){this.clear(!1,!1,!0)},this.setNodesHandler=function(w){w.setRenderer(this),G=w},this.dispose=function(){t.removeEventListener("webglcontextlost",Be,!1),t.removeEventListener("webglcontextrestored",je,!1),t.removeEventListener("webglcontextcreationerror",Ce,!1),U.dispose(),ye.dispose(),ne.dispose(),Ye.dispose(),Ve.dispose(),R.dispose(),ue.dispose(),q.dispose(),Se.dispose(),We.dispose(),ae.dispose(),he.dispose(),he.removeEventListener("sessionstart",ka),he.removeEventListener("sessionend",Ni),Ki.stop()};function Be(w){w.preventDefault(),Md("WebGLRenderer: Context Lost."),D=!0}function je(){Md("WebGLRenderer: Context Restored."),D=!1;let w=Lt.autoReset,k=me.enabled,Q=me.autoUpdate,Y=me.needsUpdate,Z=me.type;Je(),Lt.autoReset=w,me.enabled=k,me.autoUpdate=Q,me.needsUpdate=Y,me.type=Z}function Ce(w){et("WebGLRenderer: A WebGL context could not be created. Reason: ",w.statusMessage)}function ot(w){let k=w.target;k.removeEventListener("dispose",ot),Bt(k)}function Bt(w){Un(w),Ve.remove(w)}function Un(w){let k=Ve.get(w).programs;k!==void 0&&(k.forEach(function(Q){ae.releaseProgram(Q)}),w.isShaderMaterial&&ae.releaseShaderCache(w))}this.renderBufferDirect=function(w,k,Q,Y,Z,Te){k===null&&(k=fn);let Ie=Z.isMesh&&Z.matrixWorld.determinantAffine()<0,Ae=Ro(w,k,Q,Y,Z);we.setMaterial(Y,Ie);let Le=Q.index,He=1;if(Y.wireframe===!0){if(Le=q.getWireframeAttribute(Q),Le===void 0)return;He=2}let Qe=Q.drawRange,dt=Q.attributes.position,ke=Qe.start*He,ft=(Qe.start+Qe.count)*He;Te!==null&&(ke=Math.max(ke,Te.start*He),ft=Math.min(ft,(Te.start+Te.count)*He)),Le!==null?(ke=Math.max(ke,0),ft=Math.min(ft,Le.count)):dt!=null&&(ke=Math.max(ke,0),ft=Math.min(ft,dt.count));let Yt=ft-ke;if(Yt<0||Yt===1/0)return;Se.setup(Z,Y,Ae,Q,Le);let At,Rt=ie;if(Le!==null&&(At=b.get(Le),Rt=Ee,Rt.setIndex(At)),Z.isMesh)Y.wireframe===!0?(we.setLineWidth(Y.wireframeLinewidth*sn()),Rt.setMode(O.LINES)):Rt.setMode(O.TRIANGLES);else if(Z.isLine){let pn=Y.linewidth;pn===void 0&&(pn=1),we.setLineWidth(pn*sn()),Z.isLineSegments?Rt.setMode(O.LINES):Z.isLineLoop?Rt.setMode(O.LINE_LOOP):Rt.setMode(O.LINE_STRIP)}else Z.isPoints?Rt.setMode(O.POINTS):Z.isSprite&&Rt.setMode(O.TRIANGLES);if(Z.isBatchedMesh)if(Ze.get("WEBGL_multi_draw"))Rt.renderMultiDraw(Z._multiDrawStarts,Z._multiDrawCounts,Z._multiDrawCount);else{let pn=Z._multiDrawStarts,Oe=Z._multiDrawCounts,rn=Z._multiDrawCount,_t=Le?b.get(Le).bytesPerElement:1,ji=Ve.get(Y).currentProgram.getUniforms();for(let on=0;on<rn;on++)ji.setValue(O,"_gl_DrawID",on),Rt.render(pn[on]/_t,Oe[on])}else if(Z.isInstancedMesh)Rt.renderInstances(ke,Yt,Z.count);else if(Q.isInstancedBufferGeometry){let pn=Q._maxInstanceCount!==void 0?Q._maxInstanceCount:1/0,Oe=Math.min(Q.instanceCount,pn);Rt.renderInstances(ke,Yt,Oe)}else Rt.render(ke,Yt)};function Eo(w,k,Q,Y){G!==null&&w.isNodeMaterial&&G.setObject(Y,w),Ft===!0&&se.setState(w,Q,!1),w.transparent===!0&&w.side===ci&&w.forceSinglePass===!1?(w.side=Wn,w.needsUpdate=!0,Ui(w,k,Y),w.side=qi,w.needsUpdate=!0,Ui(w,k,Y),w.side=ci):Ui(w,k,Y)}this.compile=function(w,k,Q=null){Q===null&&(Q=w),G!==null&&G.renderStart(w,k,Q),T=ne.get(Q),T.init(k),E.push(T),Q.traverseVisible(function(Z){Z.isLight&&Z.layers.test(k.layers)&&(T.pushLight(Z),Z.castShadow&&T.pushShadow(Z))}),w!==Q&&w.traverseVisible(function(Z){Z.isLight&&Z.layers.test(k.layers)&&(T.pushLight(Z),Z.castShadow&&T.pushShadow(Z))}),T.setupLights(),G!==null&&G.updateLights(T.state.lightsArray),nn=this.localClippingEnabled,Ft=se.init(this.clippingPlanes,nn),Ft===!0&&se.setGlobalState(this.clippingPlanes,k),G!==null&&me.render(T.state.shadowsArray,Q,k);let Y=new Set;return w.traverse(function(Z){if(!(Z.isMesh||Z.isPoints||Z.isLine||Z.isSprite))return;let Te=Z.material;if(Te)if(Array.isArray(Te))for(let Ie=0;Ie<Te.length;Ie++){let Ae=Te[Ie];Eo(Ae,Q,k,Z),Y.add(Ae)}else Eo(Te,Q,k,Z),Y.add(Te)}),T=E.pop(),G!==null&&G.renderEnd(),Y},this.compileAsync=function(w,k,Q=null){let Y=this.compile(w,k,Q);return new Promise(Z=>{function Te(){if(Y.forEach(function(Ie){let Le=Ve.get(Ie).currentProgram;(Le===void 0||Le.isReady())&&Y.delete(Ie)}),Y.size===0){Z(w);return}setTimeout(Te,10)}Ze.get("KHR_parallel_shader_compile")!==null?Te():setTimeout(Te,10)})};let br=null;function wh(w){br&&br(w)}function ka(){Ki.stop()}function Ni(){Ki.start()}let Ki=new Kg;Ki.setAnimationLoop(wh),typeof self<"u"&&Ki.setContext(self),this.setAnimationLoop=function(w){br=w,he.setAnimationLoop(w),w===null?Ki.stop():Ki.start()},he.addEventListener("sessionstart",ka),he.addEventListener("sessionend",Ni),this.render=function(w,k){if(k!==void 0&&k.isCamera!==!0){et("WebGLRenderer.render: camera is not an instance of THREE.Camera.");return}if(D===!0)return;G!==null&&G.renderStart(w,k);let Q=he.enabled===!0&&he.isPresenting===!0,Y=B!==null&&(ce===null||Q)&&B.begin(N,ce);if(w.matrixWorldAutoUpdate===!0&&w.updateMatrixWorld(),k.parent===null&&k.matrixWorldAutoUpdate===!0&&k.updateMatrixWorld(),he.enabled===!0&&he.isPresenting===!0&&(B===null||B.isCompositing()===!1)&&(he.cameraAutoUpdate===!0&&he.updateCamera(k),k=he.getCamera()),w.isScene===!0&&w.onBeforeRender(N,w,k,ce),T=ne.get(w,E.length),T.init(k),T.state.textureUnits=Ye.getTextureUnits(),E.push(T),Pt.multiplyMatrices(k.projectionMatrix,k.matrixWorldInverse),k.isArrayCamera?Wt.setFromArrayCamera(k):nt.setFromProjectionMatrix(Pt,gi,k.reversedDepth),nn=this.localClippingEnabled,Ft=se.init(this.clippingPlanes,nn),C=ye.get(w,x.length),C.init(),x.push(C),this.info.render.frame++,he.enabled===!0&&he.isPresenting===!0){let Ie=N.xr.getDepthSensingMesh();Ie!==null&&Ji(Ie,k,-1/0,N.sortObjects)}Ji(w,k,0,N.sortObjects),C.finish(),G!==null&&G.updateLights(T.state.lightsArray),N.sortObjects===!0&&C.sort(Xe,st),$t=he.enabled===!1||he.isPresenting===!1||he.hasDepthSensing()===!1,$t&&U.addToRenderList(C,w),this.info.autoReset===!0&&this.info.reset(),Ft===!0&&se.beginShadows();let Z=T.state.shadowsArray;if(me.render(Z,w,k),Ft===!0&&se.endShadows(),(Y&&B.hasRenderPass())===!1){let Ie=C.opaque,Ae=C.transmissive;if(T.setupLights(),k.isArrayCamera){let Le=k.cameras;if(Ae.length>0)for(let He=0,Qe=Le.length;He<Qe;He++){let dt=Le[He];vi(Ie,Ae,w,dt)}$t&&U.render(w);for(let He=0,Qe=Le.length;He<Qe;He++){let dt=Le[He];To(C,w,dt,dt.viewport)}}else Ae.length>0&&vi(Ie,Ae,w,k),$t&&U.render(w),To(C,w,k)}ce!==null&&z===0&&(Ye.updateMultisampleRenderTarget(ce),Ye.updateRenderTargetMipmap(ce)),Y&&B.end(N),w.isScene===!0&&w.onAfterRender(N,w,k),Se.resetDefaultState(),K=-1,ee=null,E.pop(),E.length>0?(T=E[E.length-1],Ye.setTextureUnits(T.state.textureUnits),Ft===!0&&se.setGlobalState(N.clippingPlanes,T.state.camera)):T=null,x.pop(),x.length>0?C=x[x.length-1]:C=null,G!==null&&G.renderEnd()};function Ji(w,k,Q,Y){if(w.visible===!1)return;if(w.layers.test(k.layers)){if(w.isGroup)Q=w.renderOrder;else if(w.isLOD)w.autoUpdate===!0&&w.update(k);else if(w.isLight)T.pushLight(w),w.castShadow&&T.pushShadow(w);else if(w.isSprite){let Ie=k.isArrayCamera?Wt:nt;if(!w.frustumCulled||w.intersectsFrustum(Ie)){Y&&vt.setFromMatrixPosition(w.matrixWorld).applyMatrix4(Pt);let Ae=ue.update(w),Le=w.material;Le.visible&&C.push(w,Ae,Le,Q,vt.z,null,k)}}else if(w.isMesh||w.isLine||w.isPoints){let Ie=k.isArrayCamera?Wt:nt;if(!w.frustumCulled||w.intersectsFrustum(Ie)){let Ae=ue.update(w),Le=w.material;if(Y&&(w.boundingSphere!==void 0?(w.boundingSphere===null&&w.computeBoundingSphere(),vt.copy(w.boundingSphere.center)):(Ae.boundingSphere===null&&Ae.computeBoundingSphere(),vt.copy(Ae.boundingSphere.center)),vt.applyMatrix4(w.matrixWorld).applyMatrix4(Pt)),Array.isArray(Le)){let He=Ae.groups;for(let Qe=0,dt=He.length;Qe<dt;Qe++){let ke=He[Qe],ft=Le[ke.materialIndex];ft&&ft.visible&&C.push(w,Ae,ft,Q,vt.z,ke,k)}}else Le.visible&&C.push(w,Ae,Le,Q,vt.z,null,k)}}}let Te=w.children;for(let Ie=0,Ae=Te.length;Ie<Ae;Ie++)Ji(Te[Ie],k,Q,Y)}function To(w,k,Q,Y){let{opaque:Z,transmissive:Te,transparent:Ie}=w;T.setupLightsView(Q),Ft===!0&&se.setGlobalState(N.clippingPlanes,Q),Y&&we.viewport(re.copy(Y)),Z.length>0&&Zt(Z,k,Q),Te.length>0&&Zt(Te,k,Q),Ie.length>0&&Zt(Ie,k,Q),we.buffers.depth.setTest(!0),we.buffers.depth.setMask(!0),we.buffers.color.setMask(!0),we.setPolygonOffset(!1)}function vi(w,k,Q,Y){if((Q.isScene===!0?Q.overrideMaterial:null)!==null)return;if(T.state.transmissionRenderTarget[Y.id]===void 0){let ke=Ze.has("EXT_color_buffer_half_float")||Ze.has("EXT_color_buffer_float");T.state.transmissionRenderTarget[Y.id]=new Pn(1,1,{generateMipmaps:!0,type:ke?Li:Xn,minFilter:ps,samples:Math.max(4,rt.samples),stencilBuffer:r,resolveDepthBuffer:!1,resolveStencilBuffer:!1,storeMultisampledDepthBuffer:!1,storeMultisampledStencilBuffer:!1,colorSpace:pt.workingColorSpace})}let Te=T.state.transmissionRenderTarget[Y.id],Ie=Y.viewport||re;Te.setSize(Ie.z*N.transmissionResolutionScale,Ie.w*N.transmissionResolutionScale);let Ae=N.getRenderTarget(),Le=N.getActiveCubeFace(),He=N.getActiveMipmapLevel();N.setRenderTarget(Te),N.getClearColor(te),ge=N.getClearAlpha(),ge<1&&N.setClearColor(16777215,.5),N.clear(),$t&&U.render(Q);let Qe=N.toneMapping;N.toneMapping=Yi;let dt=Y.viewport;if(Y.viewport!==void 0&&(Y.viewport=void 0),T.setupLightsView(Y),Ft===!0&&se.setGlobalState(N.clippingPlanes,Y),Zt(w,Q,Y),Ye.updateMultisampleRenderTarget(Te),Ye.updateRenderTargetMipmap(Te),Ze.has("WEBGL_multisampled_render_to_texture")===!1){let ke=!1;for(let ft=0,Yt=k.length;ft<Yt;ft++){let At=k[ft],{object:Rt,geometry:pn,material:Oe,group:rn}=At;if(Oe.side===ci&&Rt.layers.test(Y.layers)){let _t=Oe.side;Oe.side=Wn,Oe.needsUpdate=!0,Qt(Rt,Q,Y,pn,Oe,rn),Oe.side=_t,Oe.needsUpdate=!0,ke=!0}}ke===!0&&(Ye.updateMultisampleRenderTarget(Te),Ye.updateRenderTargetMipmap(Te))}N.setRenderTarget(Ae,Le,He),N.setClearColor(te,ge),dt!==void 0&&(Y.viewport=dt),N.toneMapping=Qe}function Zt(w,k,Q){let Y=k.isScene===!0?k.overrideMaterial:null;for(let Z=0,Te=w.length;Z<Te;Z++){let Ie=w[Z],{object:Ae,geometry:Le,group:He}=Ie,Qe=Ie.material;Qe.allowOverride===!0&&Y!==null&&(Qe=Y),Ae.layers.test(Q.layers)&&Qt(Ae,k,Q,Le,Qe,He)}}function Qt(w,k,Q,Y,Z,Te){G!==null&&Z.isNodeMaterial&&G.setObject(w,Z),w.onBeforeRender(N,k,Q,Y,Z,Te),w.modelViewMatrix.multiplyMatrices(Q.matrixWorldInverse,w.matrixWorld),w.normalMatrix.getNormalMatrix(w.modelViewMatrix),Z.onBeforeRender(N,k,Q,Y,w,Te),Z.transparent===!0&&Z.side===ci&&Z.forceSinglePass===!1?(Z.side=Wn,Z.needsUpdate=!0,N.renderBufferDirect(Q,k,Y,Z,w,Te),Z.side=qi,Z.needsUpdate=!0,N.renderBufferDirect(Q,k,Y,Z,w,Te),Z.side=ci):N.renderBufferDirect(Q,k,Y,Z,w,Te),w.onAfterRender(N,k,Q,Y,Z,Te)}function en(w){let k=0;for(let Q of w)Q.texture!==null&&k++;return k}function Ui(w,k,Q){k.isScene!==!0&&(k=fn);let Y=Ve.get(w),Z=T.state.lights,Te=T.state.shadowsArray,Ie=Z.state.version,Ae=ae.getParameters(w,Z.state,Te,k,Q,T.state.lightProbeGridArray),Le=ae.getProgramCacheKey(Ae),He=Y.programs;Y.environment=w.isMeshStandardMaterial||w.isMeshLambertMaterial||w.isMeshPhongMaterial?k.environment:null,Y.fog=k.fog;let Qe=w.isMeshStandardMaterial||w.isMeshLambertMaterial&&!w.envMap||w.isMeshPhongMaterial&&!w.envMap;Y.envMap=R.get(w.envMap||Y.environment,Qe),Y.envMapRotation=Y.environment!==null&&w.envMap===null?k.environmentRotation:w.envMapRotation,He===void 0&&(w.addEventListener("dispose",ot),He=new Map,Y.programs=He,Y.programVariants=new Map);let dt=He.get(Le);if(dt!==void 0){if(Y.currentProgram===dt&&Y.lightsStateVersion===Ie)return Ao(w,Ae),dt}else Ae.uniforms=ae.getUniforms(w),G!==null&&w.isNodeMaterial&&G.build(w,Q,Ae),w.onBeforeCompile(Ae,N),dt=ae.acquireProgram(Ae,Le),He.set(Le,dt),Y.uniforms=Ae.uniforms;let ke=Y.uniforms;return(!w.isShaderMaterial&&!w.isRawShaderMaterial||w.clipping===!0)&&(ke.clippingPlanes=se.uniform),Ao(w,Ae),Y.needsLights=ys(w),Y.lightsStateVersion=Ie,Y.needsLights&&(ke.ambientLightColor.value=Z.state.ambient,ke.lightProbe.value=Z.state.probe,ke.sunLights.value=Z.state.sun,ke.sunLightShadows.value=Z.state.sunShadow,ke.directionalLights.value=Z.state.directional,ke.directionalLightShadows.value=Z.state.directionalShadow,ke.spotLights.value=Z.state.spot,ke.spotLightShadows.value=Z.state.spotShadow,ke.rectAreaLights.value=Z.state.rectArea,ke.ltc_1.value=Z.state.rectAreaLTC1,ke.ltc_2.value=Z.state.rectAreaLTC2,ke.pointLights.value=Z.state.point,ke.pointLightShadows.value=Z.state.pointShadow,ke.hemisphereLights.value=Z.state.hemi,ke.sunShadowMatrix.value=Z.state.sunShadowMatrix,ke.sunShadowCascade.value=Z.state.sunShadowCascade,ke.directionalShadowMatrix.value=Z.state.directionalShadowMatrix,ke.spotLightMatrix.value=Z.state.spotLightMatrix,ke.spotLightMap.value=Z.state.spotLightMap,ke.pointShadowMatrix.value=Z.state.pointShadowMatrix),Y.numLightProbeGrids=en(T.state.lightProbeGridArray),Y.currentProgram=dt,Y.uniformsList=null,dt}function Zn(w,k,Q,Y,Z){let Te=Ve.get(w),Ie=Te.currentProgram.id+","+Y+","+Z,Ae=Te.programVariants.get(Ie);return Ae===void 0?(Ae=Ui(w,k,Q),Te.programVariants.set(Ie,Ae)):(Te.currentProgram=Ae,Te.uniformsList=null,Te.outputColorSpace=Y,Te.toneMapping=Z),Ae}function vs(w){if(w.uniformsList===null){let k=w.currentProgram.getUniforms();w.uniformsList=So.seqWithValue(k.seq,w.uniforms)}return w.uniformsList}function Ao(w,k){let Q=Ve.get(w);Q.outputColorSpace=k.outputColorSpace,Q.batching=k.batching,Q.batchingColor=k.batchingColor,Q.instancing=k.instancing,Q.instancingColor=k.instancingColor,Q.instancingMorph=k.instancingMorph,Q.skinning=k.skinning,Q.morphTargets=k.morphTargets,Q.morphNormals=k.morphNormals,Q.morphColors=k.morphColors,Q.morphTargetsCount=k.morphTargetsCount,Q.numClippingPlanes=k.numClippingPlanes,Q.numIntersection=k.numClipIntersection,Q.vertexAlphas=k.vertexAlphas,Q.vertexTangents=k.vertexTangents,Q.toneMapping=k.toneMapping}function Ro(w,k,Q,Y,Z){k.isScene!==!0&&(k=fn),Ye.resetTextureUnits();let Te=k.fog,Ie=Y.isMeshStandardMaterial||Y.isMeshLambertMaterial||Y.isMeshPhongMaterial?k.environment:null,Ae=ce===null?N.outputColorSpace:ce.isXRRenderTarget===!0?ce.texture.colorSpace:pt.workingColorSpace,Le=Y.isMeshStandardMaterial||Y.isMeshLambertMaterial&&!Y.envMap||Y.isMeshPhongMaterial&&!Y.envMap,He=R.get(Y.envMap||Ie,Le),Qe=Y.vertexColors===!0&&!!Q.attributes.color&&Q.attributes.color.itemSize===4,dt=!!Q.attributes.tangent&&(!!Y.normalMap||Y.anisotropy>0),ke=!!Q.morphAttributes.position,ft=!!Q.morphAttributes.normal,Yt=!!Q.morphAttributes.color,At=Yi;Y.toneMapped&&(ce===null||ce.isXRRenderTarget===!0)&&(At=N.toneMapping);let Rt=Q.morphAttributes.position||Q.morphAttributes.normal||Q.morphAttributes.color,pn=Rt!==void 0?Rt.length:0,Oe=Ve.get(Y),rn=T.state.lights;if(Ft===!0&&(nn===!0||w!==ee)){let Ct=w===ee&&Y.id===K;se.setState(Y,w,Ct)}let _t=!1,ji=!1;Y.version===Oe.__version?Oe.needsLights&&Oe.lightsStateVersion!==rn.state.version||Z.isBatchedMesh&&Oe.batching===!1||!Z.isBatchedMesh&&Oe.batching===!0||Z.isBatchedMesh&&Oe.batchingColor===!0&&Z._colorsTexture===null||Z.isBatchedMesh&&Oe.batchingColor===!1&&Z._colorsTexture!==null||Z.isInstancedMesh&&Oe.instancing===!1||!Z.isInstancedMesh&&Oe.instancing===!0||Z.isSkinnedMesh&&Oe.skinning===!1||!Z.isSkinnedMesh&&Oe.skinning===!0||Z.isInstancedMesh&&Oe.instancingColor===!0&&Z.instanceColor===null||Z.isInstancedMesh&&Oe.instancingColor===!1&&Z.instanceColor!==null||Z.isInstancedMesh&&Oe.instancingMorph===!0&&Z.morphTexture===null||Z.isInstancedMesh&&Oe.instancingMorph===!1&&Z.morphTexture!==null||Oe.envMap!==He||Y.fog===!0&&Oe.fog!==Te||Oe.numClippingPlanes!==void 0&&(Oe.numClippingPlanes!==se.numPlanes||Oe.numIntersection!==se.numIntersection)||Oe.vertexAlphas!==Qe||Oe.vertexTangents!==dt||Oe.morphTargets!==ke||Oe.morphNormals!==ft||Oe.morphColors!==Yt||Oe.morphTargetsCount!==pn||Oe.numLightProbeGrids!==en(T.state.lightProbeGridArray)?_t=!0:(Oe.outputColorSpace!==Ae||Oe.toneMapping!==At)&&(ji=!0):(_t=!0,Oe.__version=Y.version);let on=Oe.currentProgram;(_t===!0||ji===!0)&&(on=ji===!0?Zn(Y,k,Z,Ae,At):Ui(Y,k,Z),G&&Y.isNodeMaterial&&G.onUpdateProgram(Y,on,Oe));let wr=!1,Oi=!1,Qi=!1,lt=on.getUniforms(),Kt=Oe.uniforms;if(we.useProgram(on.program)&&(wr=!0,Oi=!0,Qi=!0),Y.id!==K&&(K=Y.id,Oi=!0),wr||ee!==w){we.buffers.depth.getReversed()&&w.reversedDepth!==!0&&(w._reversedDepth=!0,w.updateProjectionMatrix()),lt.setValue(O,"projectionMatrix",w.projectionMatrix),lt.setValue(O,"viewMatrix",w.matrixWorldInverse);let an=lt.map.cameraPosition;an!==void 0&&an.setValue(O,bn.setFromMatrixPosition(w.matrixWorld)),rt.logarithmicDepthBuffer&&lt.setValue(O,"logDepthBufFC",2/(Math.log(w.far+1)/Math.LN2)),(Y.isMeshPhongMaterial||Y.isMeshToonMaterial||Y.isMeshLambertMaterial||Y.isMeshBasicMaterial||Y.isMeshStandardMaterial||Y.isShaderMaterial)&&lt.setValue(O,"isOrthographic",w.isOrthographicCamera===!0),ee!==w&&(ee=w,Oi=!0,Qi=!0)}if(Oe.needsLights&&(rn.state.sunShadowMap.length>0&&lt.setValue(O,"sunShadowMap",rn.state.sunShadowMap,Ye),rn.state.directionalShadowMap.length>0&&lt.setValue(O,"directionalShadowMap",rn.state.directionalShadowMap,Ye),rn.state.spotShadowMap.length>0&&lt.setValue(O,"spotShadowMap",rn.state.spotShadowMap,Ye),rn.state.pointShadowMap.length>0&&lt.setValue(O,"pointShadowMap",rn.state.pointShadowMap,Ye)),Z.isSkinnedMesh){lt.setOptional(O,Z,"bindMatrix"),lt.setOptional(O,Z,"bindMatrixInverse");let Ct=Z.skeleton;Ct&&(Ct.boneTexture===null&&Ct.computeBoneTexture(),lt.setValue(O,"boneTexture",Ct.boneTexture,Ye))}Z.isBatchedMesh&&(lt.setOptional(O,Z,"batchingTexture"),lt.setValue(O,"batchingTexture",Z._matricesTexture,Ye),lt.setOptional(O,Z,"batchingIdTexture"),lt.setValue(O,"batchingIdTexture",Z._indirectTexture,Ye),lt.setOptional(O,Z,"batchingColorTexture"),Z._colorsTexture!==null&&lt.setValue(O,"batchingColorTexture",Z._colorsTexture,Ye));let On=Q.morphAttributes;if((On.position!==void 0||On.normal!==void 0||On.color!==void 0)&&oe.update(Z,Q,on),(Oi||Oe.receiveShadow!==Z.receiveShadow)&&(Oe.receiveShadow=Z.receiveShadow,lt.setValue(O,"receiveShadow",Z.receiveShadow)),(Y.isMeshStandardMaterial||Y.isMeshLambertMaterial||Y.isMeshPhongMaterial)&&Y.envMap===null&&k.environment!==null&&(Kt.envMapIntensity.value=k.environmentIntensity),Kt.dfgLUT!==void 0&&(Kt.dfgLUT.value=Hw()),Oi){if(lt.setValue(O,"toneMappingExposure",N.toneMappingExposure),Oe.needsLights&&Sr(Kt,Qi),Te&&Y.fog===!0&&xe.refreshFogUniforms(Kt,Te),xe.refreshMaterialUniforms(Kt,Y,Me,Re,T.state.transmissionRenderTarget[w.id]),Oe.needsLights&&Oe.numLightProbeGrids>0){let Ct=S,an=0;for(let In of T.state.lightProbeGridArray)In.texture!==null&&(Ct.textures[an]=In.texture,Ct.min[an]=In.boundingBox.min,Ct.max[an]=In.boundingBox.max,Ct.resolution[an]=In.resolution,an++);for(let In in Ct)Ct[In].length=an;Kt.probesSH.value=Ct.textures,Kt.probesMin.value=Ct.min,Kt.probesMax.value=Ct.max,Kt.probesResolution.value=Ct.resolution}So.upload(O,vs(Oe),Kt,Ye)}if(Y.isShaderMaterial&&Y.uniformsNeedUpdate===!0&&(So.upload(O,vs(Oe),Kt,Ye),Y.uniformsNeedUpdate=!1),Y.isSpriteMaterial&&lt.setValue(O,"center",Z.center),lt.setValue(O,"modelViewMatrix",Z.modelViewMatrix),lt.setValue(O,"normalMatrix",Z.normalMatrix),lt.setValue(O,"modelMatrix",Z.matrixWorld),Y.uniformsGroups!==void 0){let Ct=Y.uniformsGroups;for(let an=0,In=Ct.length;an<In;an++){let za=Ct[an];We.update(za,on),We.bind(za,on)}}return on}function Sr(w,k){w.ambientLightColor.needsUpdate=k,w.lightProbe.needsUpdate=k,w.sunLights.needsUpdate=k,w.sunLightShadows.needsUpdate=k,w.directionalLights.needsUpdate=k,w.directionalLightShadows.needsUpdate=k,w.pointLights.needsUpdate=k,w.pointLightShadows.needsUpdate=k,w.spotLights.needsUpdate=k,w.spotLightShadows.needsUpdate=k,w.rectAreaLights.needsUpdate=k,w.hemisphereLights.needsUpdate=k}function ys(w){return w.isMeshLambertMaterial||w.isMeshToonMaterial||w.isMeshPhongMaterial||w.isMeshStandardMaterial||w.isShadowMaterial||w.isShaderMaterial&&w.lights===!0}this.getActiveCubeFace=function(){return $},this.getActiveMipmapLevel=function(){return z},this.getRenderTarget=function(){return ce},this.setRenderTargetTextures=function(w,k,Q){let Y=Ve.get(w);Y.__autoAllocateDepthBuffer=w.resolveDepthBuffer===!1,Y.__autoAllocateDepthBuffer===!1&&(Y.__useRenderToTexture=!1),Ve.get(w.texture).__webglTexture=k,Ve.get(w.depthTexture).__webglTexture=Y.__autoAllocateDepthBuffer?void 0:Q,Y.__hasExternalTextures=!0},this.setRenderTargetFramebuffer=function(w,k){let Q=Ve.get(w);Q.__webglFramebuffer=k,Q.__useDefaultFramebuffer=k===void 0},this.setRenderTarget=function(w,k=0,Q=0){ce=w,$=k,z=Q;let Y=null,Z=!1,Te=!1;if(w){let Ae=Ve.get(w);if(Ae.__useDefaultFramebuffer!==void 0){we.bindFramebuffer(O.FRAMEBUFFER,Ae.__webglFramebuffer),re.copy(w.viewport),fe.copy(w.scissor),de=w.scissorTest,we.viewport(re),we.scissor(fe),we.setScissorTest(de),K=-1;return}else if(Ae.__webglFramebuffer===void 0)Ye.setupRenderTarget(w);else if(Ae.__hasExternalTextures)Ye.rebindTextures(w,Ve.get(w.texture).__webglTexture,Ve.get(w.depthTexture).__webglTexture);else if(w.depthBuffer){let Qe=w.depthTexture;if(Ae.__boundDepthTexture!==Qe){if(Qe!==null&&Ve.has(Qe)&&(w.width!==Qe.image.width||w.height!==Qe.image.height))throw new Error("THREE.WebGLRenderer: Attached DepthTexture is initialized to the incorrect size.");Ye.setupDepthRenderbuffer(w)}}let Le=w.texture;(Le.isData3DTexture||Le.isDataArrayTexture||Le.isCompressedArrayTexture)&&(Te=!0);let He=Ve.get(w).__webglFramebuffer;w.isWebGLCubeRenderTarget?(Array.isArray(He[k])?Y=He[k][Q]:Y=He[k],Z=!0):w.samples>0&&Ye.useMultisampledRTT(w)===!1?Y=Ve.get(w).__webglMultisampledFramebuffer:Array.isArray(He)?Y=He[Q]:Y=He,re.copy(w.viewport),fe.copy(w.scissor),de=w.scissorTest}else re.copy(Ge).multiplyScalar(Me).floor(),fe.copy(ut).multiplyScalar(Me).floor(),de=at;if(Q!==0&&(Y=V),we.bindFramebuffer(O.FRAMEBUFFER,Y)&&we.drawBuffers(w,Y),we.viewport(re),we.scissor(fe),we.setScissorTest(de),Z){let Ae=Ve.get(w.texture);O.framebufferTexture2D(O.FRAMEBUFFER,O.COLOR_ATTACHMENT0,O.TEXTURE_CUBE_MAP_POSITIVE_X+k,Ae.__webglTexture,Q)}else if(Te){let Ae=k;for(let Le=0;Le<w.textures.length;Le++){let He=Ve.get(w.textures[Le]);O.framebufferTextureLayer(O.FRAMEBUFFER,O.COLOR_ATTACHMENT0+Le,He.__webglTexture,Q,Ae)}}else if(w!==null&&Q!==0){let Ae=Ve.get(w.texture);O.framebufferTexture2D(O.FRAMEBUFFER,O.COLOR_ATTACHMENT0,O.TEXTURE_2D,Ae.__webglTexture,Q)}K=-1};function Mr(w){let k=Ve.get(w);return(k.__readFormat!==w.format||k.__readType!==w.type)&&(k.__readFormat=w.format,k.__readType=w.type,k.__formatReadable=rt.textureFormatReadable(w.format),k.__typeReadable=rt.textureTypeReadable(w.type)),k}this.readRenderTargetPixels=function(w,k,Q,Y,Z,Te,Ie,Ae=0){if(!(w&&w.isWebGLRenderTarget)){et("WebGLRenderer.readRenderTargetPixels: renderTarget is not THREE.WebGLRenderTarget.");return}let Le=Ve.get(w).__webglFramebuffer;if(w.isWebGLCubeRenderTarget&&Ie!==void 0&&(Le=Le[Ie],Array.isArray(Le)&&(Le=Le[0])),Le){we.bindFramebuffer(O.FRAMEBUFFER,Le);try{let He=w.textures[Ae],Qe=He.format,dt=He.type;w.textures.length>1&&O.readBuffer(O.COLOR_ATTACHMENT0+Ae);let ke=Mr(He);if(ke.__formatReadable===!1){et("WebGLRenderer.readRenderTargetPixels: renderTarget is not in RGBA or implementation defined format.");return}if(ke.__typeReadable===!1){et("WebGLRenderer.readRenderTargetPixels: renderTarget is not in UnsignedByteType or implementation defined type.");return}k>=0&&k<=w.width-Y&&Q>=0&&Q<=w.height-Z&&O.readPixels(k,Q,Y,Z,_e.convert(Qe),_e.convert(dt),Te)}finally{let He=ce!==null?Ve.get(ce).__webglFramebuffer:null;we.bindFramebuffer(O.FRAMEBUFFER,He)}}},this.readRenderTargetPixelsAsync=async function(w,k,Q,Y,Z,Te,Ie,Ae=0){if(!(w&&w.isWebGLRenderTarget))throw new Error("THREE.WebGLRenderer.readRenderTargetPixels: renderTarget is not THREE.WebGLRenderTarget.");let Le=Ve.get(w).__webglFramebuffer;if(w.isWebGLCubeRenderTarget&&Ie!==void 0&&(Le=Le[Ie],Array.isArray(Le)&&(Le=Le[0])),Le)if(k>=0&&k<=w.width-Y&&Q>=0&&Q<=w.height-Z){we.bindFramebuffer(O.FRAMEBUFFER,Le);let He=w.textures[Ae],Qe=He.format,dt=He.type;w.textures.length>1&&O.readBuffer(O.COLOR_ATTACHMENT0+Ae);let ke=Mr(He);if(ke.__formatReadable===!1)throw new Error("THREE.WebGLRenderer.readRenderTargetPixelsAsync: renderTarget is not in RGBA or implementation defined format.");if(ke.__typeReadable===!1)throw new Error("THREE.WebGLRenderer.readRenderTargetPixelsAsync: renderTarget is not in UnsignedByteType or implementation defined type.");let ft=O.createBuffer();O.bindBuffer(O.PIXEL_PACK_BUFFER,ft),O.bufferData(O.PIXEL_PACK_BUFFER,Te.byteLength,O.STREAM_READ),O.readPixels(k,Q,Y,Z,_e.convert(Qe),_e.convert(dt),0),O.bindBuffer(O.PIXEL_PACK_BUFFER,null);let Yt=ce!==null?Ve.get(ce).__webglFramebuffer:null;we.bindFramebuffer(O.FRAMEBUFFER,Yt);let At=O.fenceSync(O.SYNC_GPU_COMMANDS_COMPLETE,0);return O.flush(),await bg(O,At,4),O.bindBuffer(O.PIXEL_PACK_BUFFER,ft),O.getBufferSubData(O.PIXEL_PACK_BUFFER,0,Te),O.bindBuffer(O.PIXEL_PACK_BUFFER,null),O.deleteBuffer(ft),O.deleteSync(At),Te}else throw new Error("THREE.WebGLRenderer.readRenderTargetPixelsAsync: requested read bounds are out of range.")},this.copyFramebufferToTexture=function(w,k=null,Q=0){let Y=Math.pow(2,-Q),Z=Math.floor(w.image.width*Y),Te=Math.floor(w.image.height*Y),Ie=k!==null?k.x:0,Ae=k!==null?k.y:0;Ye.setTexture2D(w,0),O.copyTexSubImage2D(O.TEXTURE_2D,Q,0,0,Ie,Ae,Z,Te),we.unbindTexture()},this.copyTextureToTexture=function(w,k,Q=null,Y=null,Z=0,Te=0){let Ie,Ae,Le,He,Qe,dt,ke,ft,Yt,At=w.isCompressedTexture?w.mipmaps[Te]:w.image;if(Q!==null)Ie=Q.max.x-Q.min.x,Ae=Q.max.y-Q.min.y,Le=Q.isBox3?Q.max.z-Q.min.z:1,He=Q.min.x,Qe=Q.min.y,dt=Q.isBox3?Q.min.z:0;else{let lt=Math.pow(2,-Z);Ie=Math.floor(At.width*lt),Ae=Math.floor(At.height*lt),w.isDataArrayTexture?Le=At.depth:w.isData3DTexture?Le=Math.floor(At.depth*lt):Le=1,He=0,Qe=0,dt=0}Y!==null?(ke=Y.x,ft=Y.y,Yt=Y.z):(ke=0,ft=0,Yt=0);let Rt=_e.convert(k.format),pn=_e.convert(k.type),Oe;k.isData3DTexture?(Ye.setTexture3D(k,0),Oe=O.TEXTURE_3D):k.isDataArrayTexture||k.isCompressedArrayTexture?(Ye.setTexture2DArray(k,0),Oe=O.TEXTURE_2D_ARRAY):(Ye.setTexture2D(k,0),Oe=O.TEXTURE_2D),we.activeTexture(O.TEXTURE0),we.pixelStorei(O.UNPACK_FLIP_Y_WEBGL,k.flipY),we.pixelStorei(O.UNPACK_PREMULTIPLY_ALPHA_WEBGL,k.premultiplyAlpha),we.pixelStorei(O.UNPACK_ALIGNMENT,k.unpackAlignment);let rn=we.getParameter(O.UNPACK_ROW_LENGTH),_t=we.getParameter(O.UNPACK_IMAGE_HEIGHT),ji=we.getParameter(O.UNPACK_SKIP_PIXELS),on=we.getParameter(O.UNPACK_SKIP_ROWS),wr=we.getParameter(O.UNPACK_SKIP_IMAGES);we.pixelStorei(O.UNPACK_ROW_LENGTH,At.width),we.pixelStorei(O.UNPACK_IMAGE_HEIGHT,At.height),we.pixelStorei(O.UNPACK_SKIP_PIXELS,He),we.pixelStorei(O.UNPACK_SKIP_ROWS,Qe),we.pixelStorei(O.UNPACK_SKIP_IMAGES,dt);let Oi=w.isDataArrayTexture||w.isData3DTexture,Qi=k.isDataArrayTexture||k.isData3DTexture;if(w.isDepthTexture){let lt=Ve.get(w),Kt=Ve.get(k),On=Ve.get(lt.__renderTarget),Ct=Ve.get(Kt.__renderTarget);we.bindFramebuffer(O.READ_FRAMEBUFFER,On.__webglFramebuffer),we.bindFramebuffer(O.DRAW_FRAMEBUFFER,Ct.__webglFramebuffer);for(let an=0;an<Le;an++)Oi&&(O.framebufferTextureLayer(O.READ_FRAMEBUFFER,O.COLOR_ATTACHMENT0,Ve.get(w).__webglTexture,Z,dt+an),O.framebufferTextureLayer(O.DRAW_FRAMEBUFFER,O.COLOR_ATTACHMENT0,Ve.get(k).__webglTexture,Te,Yt+an)),O.blitFramebuffer(He,Qe,He+Ie,Qe+Ae,ke,ft,ke+Ie,ft+Ae,O.DEPTH_BUFFER_BIT,O.NEAREST);we.bindFramebuffer(O.READ_FRAMEBUFFER,null),we.bindFramebuffer(O.DRAW_FRAMEBUFFER,null)}else if(Z!==0||w.isRenderTargetTexture||Ve.has(w)){let lt=Ve.get(w),Kt=Ve.get(k);we.bindFramebuffer(O.READ_FRAMEBUFFER,I),we.bindFramebuffer(O.DRAW_FRAMEBUFFER,W);for(let On=0;On<Le;On++)Oi?O.framebufferTextureLayer(O.READ_FRAMEBUFFER,O.COLOR_ATTACHMENT0,lt.__webglTexture,Z,dt+On):O.framebufferTexture2D(O.READ_FRAMEBUFFER,O.COLOR_ATTACHMENT0,O.TEXTURE_2D,lt.__webglTexture,Z),Qi?O.framebufferTextureLayer(O.DRAW_FRAMEBUFFER,O.COLOR_ATTACHMENT0,Kt.__webglTexture,Te,Yt+On):O.framebufferTexture2D(O.DRAW_FRAMEBUFFER,O.COLOR_ATTACHMENT0,O.TEXTURE_2D,Kt.__webglTexture,Te),Z!==0?O.blitFramebuffer(He,Qe,He+Ie,Qe+Ae,ke,ft,ke+Ie,ft+Ae,O.COLOR_BUFFER_BIT,O.NEAREST):Qi?O.copyTexSubImage3D(Oe,Te,ke,ft,Yt+On,He,Qe,Ie,Ae):O.copyTexSubImage2D(Oe,Te,ke,ft,He,Qe,Ie,Ae);we.bindFramebuffer(O.READ_FRAMEBUFFER,null),we.bindFramebuffer(O.DRAW_FRAMEBUFFER,null)}else Qi?w.isDataTexture||w.isData3DTexture?O.texSubImage3D(Oe,Te,ke,ft,Yt,Ie,Ae,Le,Rt,pn,At.data):k.isCompressedArrayTexture?O.compressedTexSubImage3D(Oe,Te,ke,ft,Yt,Ie,Ae,Le,Rt,At.data):O.texSubImage3D(Oe,Te,ke,ft,Yt,Ie,Ae,Le,Rt,pn,At):w.isDataTexture?O.texSubImage2D(O.TEXTURE_2D,Te,ke,ft,Ie,Ae,Rt,pn,At.data):w.isCompressedTexture?O.compressedTexSubImage2D(O.TEXTURE_2D,Te,ke,ft,At.width,At.height,Rt,At.data):O.texSubImage2D(O.TEXTURE_2D,Te,ke,ft,Ie,Ae,Rt,pn,At);we.pixelStorei(O.UNPACK_ROW_LENGTH,rn),we.pixelStorei(O.UNPACK_IMAGE_HEIGHT,_t),we.pixelStorei(O.UNPACK_SKIP_PIXELS,ji),we.pixelStorei(O.UNPACK_SKIP_ROWS,on),we.pixelStorei(O.UNPACK_SKIP_IMAGES,wr),Te===0&&k.generateMipmaps===!0&&k.mipmapsAutoUpdate===!0&&O.generateMipmap(Oe),we.unbindTexture()},this.initRenderTarget=function(w){Ve.get(w).__webglFramebuffer===void 0&&Ye.setupRenderTarget(w)},this.initTexture=function(w){w.isCubeTexture?Ye.setTextureCube(w,0):w.isData3DTexture?Ye.setTexture3D(w,0):w.isDataArrayTexture||w.isCompressedArrayTexture?Ye.setTexture2DArray(w,0):Ye.setTexture2D(w,0),we.unbindTexture()},this.resetState=function(){$=0,z=0,ce=null,we.reset(),Se.reset()},typeof __THREE_DEVTOOLS__<"u"&&__THREE_DEVTOOLS__.dispatchEvent(new CustomEvent("observe",{detail:this}))}get coordinateSystem(){return gi}get outputColorSpace(){return this._outputColorSpace}set outputColorSpace(e){this._outputColorSpace=e;let t=this.getContext();t.drawingBufferColorSpace=pt._getDrawingBufferColorSpace(e),t.unpackColorSpace=pt._getUnpackColorSpace()}};var a0={type:"change"},Zd={type:"start"},c0={type:"end"},vh=new Us,l0=new oi,Gw=Math.cos(70*Ad.DEG2RAD),yn=new F,$n=2*Math.PI,wt={NONE:-1,ROTATE:0,DOLLY:1,PAN:2,TOUCH_ROTATE:3,TOUCH_PAN:4,TOUCH_DOLLY_PAN:5,TOUCH_DOLLY_ROTATE:6},$d=1e-6,yh=class extends Sa{constructor(e,t=null){super(e,t),this.state=wt.NONE,this.target=new F,this.cursor=new F,this.minDistance=0,this.maxDistance=1/0,this.minZoom=0,this.maxZoom=1/0,this.minTargetRadius=0,this.maxTargetRadius=1/0,this.minPolarAngle=0,this.maxPolarAngle=Math.PI,this.minAzimuthAngle=-1/0,this.maxAzimuthAngle=1/0,this.enableDamping=!1,this.dampingFactor=.05,this.enableZoom=!0,this.zoomSpeed=1,this.enableRotate=!0,this.rotateSpeed=1,this.keyRotateSpeed=1,this.enablePan=!0,this.panSpeed=1,this.screenSpacePanning=!0,this.keyPanSpeed=7,this.zoomToCursor=!1,this.autoRotate=!1,this.autoRotateSpeed=2,this.keys={LEFT:"ArrowLeft",UP:"ArrowUp",RIGHT:"ArrowRight",BOTTOM:"ArrowDown"},this.mouseButtons={LEFT:ks.ROTATE,MIDDLE:ks.DOLLY,RIGHT:ks.PAN},this.touches={ONE:zs.ROTATE,TWO:zs.DOLLY_PAN},this.target0=this.target.clone(),this.position0=this.object.position.clone(),this.zoom0=this.object.zoom,this._cursorStyle="auto",this._domElementKeyEvents=null,this._lastPosition=new F,this._lastQuaternion=new ai,this._lastTargetPosition=new F,this._quat=new ai().setFromUnitVectors(e.up,new F(0,1,0)),this._quatInverse=this._quat.clone().invert(),this._spherical=new mo,this._sphericalDelta=new mo,this._scale=1,this._panOffset=new F,this._rotateStart=new ze,this._rotateEnd=new ze,this._rotateDelta=new ze,this._panStart=new ze,this._panEnd=new ze,this._panDelta=new ze,this._dollyStart=new ze,this._dollyEnd=new ze,this._dollyDelta=new ze,this._dollyDirection=new F,this._mouse=new ze,this._performCursorZoom=!1,this._pointers=[],this._pointerPositions={},this._controlActive=!1,this._onPointerMove=Xw.bind(this),this._onPointerDown=Ww.bind(this),this._onPointerUp=qw.bind(this),this._onContextMenu=Qw.bind(this),this._onMouseWheel=Zw.bind(this),this._onKeyDown=Kw.bind(this),this._onTouchStart=Jw.bind(this),this._onTouchMove=jw.bind(this),this._onMouseDown=Yw.bind(this),this._onMouseMove=$w.bind(this),this._interceptControlDown=eE.bind(this),this._interceptControlUp=tE.bind(this),this.domElement!==null&&this.connect(this.domElement),this.update()}set cursorStyle(e){this._cursorStyle=e,e==="grab"?this.domElement.style.cursor="grab":this.domElement.style.cursor="auto"}get cursorStyle(){return this._cursorStyle}connect(e){super.connect(e),this.domElement.addEventListener("pointerdown",this._onPointerDown),this.domElement.addEventListener("pointercancel",this._onPointerUp),this.domElement.addEventListener("contextmenu",this._onContextMenu),this.domElement.addEventListener("wheel",this._onMouseWheel,{passive:!1}),this.domElement.ownerDocument.addEventListener("keydown",this._interceptControlDown,{passive:!0,capture:!0}),this.domElement.style.touchAction="none"}disconnect(){this.state=wt.NONE,this.domElement.removeEventListener("pointerdown",this._onPointerDown),this.domElement.ownerDocument.removeEventListener("pointermove",this._onPointerMove),this.domElement.ownerDocument.removeEventListener("pointerup",this._onPointerUp),this.domElement.removeEventListener("pointercancel",this._onPointerUp),this.domElement.removeEventListener("wheel",this._onMouseWheel),this.domElement.removeEventListener("contextmenu",this._onContextMenu),this.stopListenToKeyEvents(),this.domElement.ownerDocument.removeEventListener("keydown",this._interceptControlDown,{capture:!0}),this.domElement.ownerDocument.removeEventListener("keyup",this._interceptControlUp,{capture:!0}),this._controlActive=!1,this._pointers.length=0,this._pointerPositions={},this.domElement.style.touchAction="",this.domElement.style.cursor="auto"}dispose(){this.disconnect()}getPolarAngle(){return this._spherical.phi}getAzimuthalAngle(){return this._spherical.theta}getDistance(){return this.object.position.distanceTo(this.target)}listenToKeyEvents(e){e.addEventListener("keydown",this._onKeyDown),this._domElementKeyEvents=e}stopListenToKeyEvents(){this._domElementKeyEvents!==null&&(this._domElementKeyEvents.removeEventListener("keydown",this._onKeyDown),this._domElementKeyEvents=null)}saveState(){this.target0.copy(this.target),this.position0.copy(this.object.position),this.zoom0=this.object.zoom}reset(){this.target.copy(this.target0),this.object.position.copy(this.position0),this.object.zoom=this.zoom0,this.object.updateProjectionMatrix(),this.dispatchEvent(a0),this.update(),this.state=wt.NONE}pan(e,t){this._pan(e,t),this.update()}dollyIn(e){this._dollyIn(e),this.update()}dollyOut(e){this._dollyOut(e),this.update()}rotateLeft(e){this._rotateLeft(e),this.update()}rotateUp(e){this._rotateUp(e),this.update()}update(e=null){let t=this.object.position;yn.copy(t).sub(this.target),yn.applyQuaternion(this._quat),this._spherical.setFromVector3(yn),this.autoRotate&&this.state===wt.NONE&&this._rotateLeft(this._getAutoRotationAngle(e)),this.enableDamping?(this._spherical.theta+=this._sphericalDelta.theta*this.dampingFactor,this._spherical.phi+=this._sphericalDelta.phi*this.dampingFactor):(this._spherical.theta+=this._sphericalDelta.theta,this._spherical.phi+=this._sphericalDelta.phi);let n=this.minAzimuthAngle,s=this.maxAzimuthAngle;isFinite(n)&&isFinite(s)&&(n<-Math.PI?n+=$n:n>Math.PI&&(n-=$n),s<-Math.PI?s+=$n:s>Math.PI&&(s-=$n),n<=s?this._spherical.theta=Math.max(n,Math.min(s,this._spherical.theta)):this._spherical.theta=this._spherical.theta>(n+s)/2?Math.max(n,this._spherical.theta):Math.min(s,this._spherical.theta)),this._spherical.phi=Math.max(this.minPolarAngle,Math.min(this.maxPolarAngle,this._spherical.phi)),this._spherical.makeSafe(),this.enableDamping===!0?this.target.addScaledVector(this._panOffset,this.dampingFactor):this.target.add(this._panOffset),this.target.sub(this.cursor),this.target.clampLength(this.minTargetRadius,this.maxTargetRadius),this.target.add(this.cursor);let r=!1;if(this.zoomToCursor&&this._performCursorZoom||this.object.isOrthographicCamera)this._spherical.radius=this._clampDistance(this._spherical.radius);else{let o=this._spherical.radius;this._spherical.radius=this._clampDistance(this._spherical.radius*this._scale),r=o!=this._spherical.radius}if(yn.setFromSpherical(this._spherical),yn.applyQuaternion(this._quatInverse),t.copy(this.target).add(yn),this.object.lookAt(this.target),this.enableDamping===!0?(this._sphericalDelta.theta*=1-this.dampingFactor,this._sphericalDelta.phi*=1-this.dampingFactor,this._panOffset.multiplyScalar(1-this.dampingFactor)):(this._sphericalDelta.set(0,0,0),this._panOffset.set(0,0,0)),this.zoomToCursor&&this._performCursorZoom){let o=null;if(this.object.isPerspectiveCamera){let a=yn.length();o=this._clampDistance(a*this._scale);let l=a-o;this.object.position.addScaledVector(this._dollyDirection,l),this.object.updateMatrixWorld(),r=!!l}else if(this.object.isOrthographicCamera){let a=new F(this._mouse.x,this._mouse.y,0);a.unproject(this.object);let l=this.object.zoom;this.object.zoom=Math.max(this.minZoom,Math.min(this.maxZoom,this.object.zoom/this._scale)),this.object.updateProjectionMatrix(),r=l!==this.object.zoom;let c=new F(this._mouse.x,this._mouse.y,0);c.unproject(this.object),this.object.position.sub(c).add(a),this.object.updateMatrixWorld(),o=yn.length()}else console.warn("WARNING: OrbitControls.js encountered an unknown camera type - zoom to cursor disabled."),this.zoomToCursor=!1;o!==null&&(this.screenSpacePanning?this.target.set(0,0,-1).transformDirection(this.object.matrix).multiplyScalar(o).add(this.object.position):(vh.origin.copy(this.object.position),vh.direction.set(0,0,-1).transformDirection(this.object.matrix),Math.abs(this.object.up.dot(vh.direction))<Gw?this.object.lookAt(this.target):(l0.setFromNormalAndCoplanarPoint(this.object.up,this.target),vh.intersectPlane(l0,this.target))))}else if(this.object.isOrthographicCamera){let o=this.object.zoom;this.object.zoom=Math.max(this.minZoom,Math.min(this.maxZoom,this.object.zoom/this._scale)),o!==this.object.zoom&&(this.object.updateProjectionMatrix(),r=!0)}return this._scale=1,this._performCursorZoom=!1,r||this._lastPosition.distanceToSquared(this.object.position)>$d||8*(1-this._lastQuaternion.dot(this.object.quaternion))>$d||this._lastTargetPosition.distanceToSquared(this.target)>$d?(this.dispatchEvent(a0),this._lastPosition.copy(this.object.position),this._lastQuaternion.copy(this.object.quaternion),this._lastTargetPosition.copy(this.target),!0):!1}_getAutoRotationAngle(e){return e!==null?$n/60*this.autoRotateSpeed*e:$n/60/60*this.autoRotateSpeed}_getZoomScale(e){let t=Math.abs(e*.01);return Math.pow(.95,this.zoomSpeed*t)}_rotateLeft(e){this._sphericalDelta.theta-=e}_rotateUp(e){this._sphericalDelta.phi-=e}_panLeft(e,t){yn.setFromMatrixColumn(t,0),yn.multiplyScalar(-e),this._panOffset.add(yn)}_panUp(e,t){this.screenSpacePanning===!0?yn.setFromMatrixColumn(t,1):(yn.setFromMatrixColumn(t,0),yn.crossVectors(this.object.up,yn)),yn.multiplyScalar(e),this._panOffset.add(yn)}_pan(e,t){let n=this.domElement;if(this.object.isPerspectiveCamera){let s=this.object.position;yn.copy(s).sub(this.target);let r=yn.length();r*=Math.tan(this.object.fov/2*Math.PI/180),this._panLeft(2*e*r/n.clientHeight,this.object.matrix),this._panUp(2*t*r/n.clientHeight,this.object.matrix)}else this.object.isOrthographicCamera?(this._panLeft(e*(this.object.right-this.object.left)/this.object.zoom/n.clientWidth,this.object.matrix),this._panUp(t*(this.object.top-this.object.bottom)/this.object.zoom/n.clientHeight,this.object.matrix)):(console.warn("WARNING: OrbitControls.js encountered an unknown camera type - pan disabled."),this.enablePan=!1)}_dollyOut(e){this.object.isPerspectiveCamera||this.object.isOrthographicCamera?this._scale/=e:(console.warn("WARNING: OrbitControls.js encountered an unknown camera type - dolly/zoom disabled."),this.enableZoom=!1)}_dollyIn(e){this.object.isPerspectiveCamera||this.object.isOrthographicCamera?this._scale*=e:(console.warn("WARNING: OrbitControls.js encountered an unknown camera type - dolly/zoom disabled."),this.enableZoom=!1)}_updateZoomParameters(e,t){if(!this.zoomToCursor)return;this._performCursorZoom=!0;let n=this.domElement.getBoundingClientRect(),s=e-n.left,r=t-n.top,o=n.width,a=n.height;this._mouse.x=s/o*2-1,this._mouse.y=-(r/a)*2+1,this._dollyDirection.set(this._mouse.x,this._mouse.y,1).unproject(this.object).sub(this.object.position).normalize()}_clampDistance(e){return Math.max(this.minDistance,Math.min(this.maxDistance,e))}_handleMouseDownRotate(e){this._rotateStart.set(e.clientX,e.clientY)}_handleMouseDownDolly(e){this._updateZoomParameters(e.clientX,e.clientY),this._dollyStart.set(e.clientX,e.clientY)}_handleMouseDownPan(e){this._panStart.set(e.clientX,e.clientY)}_handleMouseMoveRotate(e){this._rotateEnd.set(e.clientX,e.clientY),this._rotateDelta.subVectors(this._rotateEnd,this._rotateStart).multiplyScalar(this.rotateSpeed);let t=this.domElement;this._rotateLeft($n*this._rotateDelta.x/t.clientHeight),this._rotateUp($n*this._rotateDelta.y/t.clientHeight),this._rotateStart.copy(this._rotateEnd),this.update()}_handleMouseMoveDolly(e){this._dollyEnd.set(e.clientX,e.clientY),this._dollyDelta.subVectors(this._dollyEnd,this._dollyStart),this._dollyDelta.y>0?this._dollyOut(this._getZoomScale(this._dollyDelta.y)):this._dollyDelta.y<0&&this._dollyIn(this._getZoomScale(this._dollyDelta.y)),this._dollyStart.copy(this._dollyEnd),this.zoomToCursor&&(this._performCursorZoom=!0,this._dollyDirection.set(this._mouse.x,this._mouse.y,1).unproject(this.object).sub(this.object.position).normalize()),this.update()}_handleMouseMovePan(e){this._panEnd.set(e.clientX,e.clientY),this._panDelta.subVectors(this._panEnd,this._panStart).multiplyScalar(this.panSpeed),this._pan(this._panDelta.x,this._panDelta.y),this._panStart.copy(this._panEnd),this.update()}_handleMouseWheel(e){this._updateZoomParameters(e.clientX,e.clientY),e.deltaY<0?this._dollyIn(this._getZoomScale(e.deltaY)):e.deltaY>0&&this._dollyOut(this._getZoomScale(e.deltaY)),this.update()}_handleKeyDown(e){let t=!1;switch(e.code){case this.keys.UP:e.ctrlKey||e.metaKey||e.shiftKey?this.enableRotate&&this._rotateUp($n*this.keyRotateSpeed/this.domElement.clientHeight):this.enablePan&&this._pan(0,this.keyPanSpeed),t=!0;break;case this.keys.BOTTOM:e.ctrlKey||e.metaKey||e.shiftKey?this.enableRotate&&this._rotateUp(-$n*this.keyRotateSpeed/this.domElement.clientHeight):this.enablePan&&this._pan(0,-this.keyPanSpeed),t=!0;break;case this.keys.LEFT:e.ctrlKey||e.metaKey||e.shiftKey?this.enableRotate&&this._rotateLeft($n*this.keyRotateSpeed/this.domElement.clientHeight):this.enablePan&&this._pan(this.keyPanSpeed,0),t=!0;break;case this.keys.RIGHT:e.ctrlKey||e.metaKey||e.shiftKey?this.enableRotate&&this._rotateLeft(-$n*this.keyRotateSpeed/this.domElement.clientHeight):this.enablePan&&this._pan(-this.keyPanSpeed,0),t=!0;break}t&&(e.preventDefault(),this.update())}_handleTouchStartRotate(e){if(this._pointers.length===1)this._rotateStart.set(e.pageX,e.pageY);else{let t=this._getSecondPointerPosition(e),n=.5*(e.pageX+t.x),s=.5*(e.pageY+t.y);this._rotateStart.set(n,s)}}_handleTouchStartPan(e){if(this._pointers.length===1)this._panStart.set(e.pageX,e.pageY);else{let t=this._getSecondPointerPosition(e),n=.5*(e.pageX+t.x),s=.5*(e.pageY+t.y);this._panStart.set(n,s)}}_handleTouchStartDolly(e){let t=this._getSecondPointerPosition(e),n=e.pageX-t.x,s=e.pageY-t.y,r=Math.sqrt(n*n+s*s);this._dollyStart.set(0,r)}_handleTouchStartDollyPan(e){this.enableZoom&&this._handleTouchStartDolly(e),this.enablePan&&this._handleTouchStartPan(e)}_handleTouchStartDollyRotate(e){this.enableZoom&&this._handleTouchStartDolly(e),this.enableRotate&&this._handleTouchStartRotate(e)}_handleTouchMoveRotate(e){if(this._pointers.length==1)this._rotateEnd.set(e.pageX,e.pageY);else{let n=this._getSecondPointerPosition(e),s=.5*(e.pageX+n.x),r=.5*(e.pageY+n.y);this._rotateEnd.set(s,r)}this._rotateDelta.subVectors(this._rotateEnd,this._rotateStart).multiplyScalar(this.rotateSpeed);let t=this.domElement;this._rotateLeft($n*this._rotateDelta.x/t.clientHeight),this._rotateUp($n*this._rotateDelta.y/t.clientHeight),this._rotateStart.copy(this._rotateEnd)}_handleTouchMovePan(e){if(this._pointers.length===1)this._panEnd.set(e.pageX,e.pageY);else{let t=this._getSecondPointerPosition(e),n=.5*(e.pageX+t.x),s=.5*(e.pageY+t.y);this._panEnd.set(n,s)}this._panDelta.subVectors(this._panEnd,this._panStart).multiplyScalar(this.panSpeed),this._pan(this._panDelta.x,this._panDelta.y),this._panStart.copy(this._panEnd)}_handleTouchMoveDolly(e){let t=this._getSecondPointerPosition(e),n=e.pageX-t.x,s=e.pageY-t.y,r=Math.sqrt(n*n+s*s);this._dollyEnd.set(0,r),this._dollyDelta.set(0,Math.pow(this._dollyEnd.y/this._dollyStart.y,this.zoomSpeed)),this._dollyOut(this._dollyDelta.y),this._dollyStart.copy(this._dollyEnd);let o=(e.pageX+t.x)*.5,a=(e.pageY+t.y)*.5;this._updateZoomParameters(o,a)}_handleTouchMoveDollyPan(e){this.enableZoom&&this._handleTouchMoveDolly(e),this.enablePan&&this._handleTouchMovePan(e)}_handleTouchMoveDollyRotate(e){this.enableZoom&&this._handleTouchMoveDolly(e),this.enableRotate&&this._handleTouchMoveRotate(e)}_addPointer(e){this._pointers.push(e.pointerId)}_removePointer(e){delete this._pointerPositions[e.pointerId];for(let t=0;t<this._pointers.length;t++)if(this._pointers[t]==e.pointerId){this._pointers.splice(t,1);return}}_isTrackingPointer(e){for(let t=0;t<this._pointers.length;t++)if(this._pointers[t]==e.pointerId)return!0;return!1}_trackPointer(e){let t=this._pointerPositions[e.pointerId];t===void 0&&(t=new ze,this._pointerPositions[e.pointerId]=t),t.set(e.pageX,e.pageY)}_getSecondPointerPosition(e){let t=e.pointerId===this._pointers[0]?this._pointers[1]:this._pointers[0];return this._pointerPositions[t]}_customWheelEvent(e){let t=e.deltaMode,n={clientX:e.clientX,clientY:e.clientY,deltaY:e.deltaY};switch(t){case 1:n.deltaY*=16;break;case 2:n.deltaY*=100;break}return e.ctrlKey&&!this._controlActive&&(n.deltaY*=10),n}};function Ww(i){this.enabled!==!1&&(this._pointers.length===0&&(this.domElement.setPointerCapture(i.pointerId),this.domElement.ownerDocument.addEventListener("pointermove",this._onPointerMove),this.domElement.ownerDocument.addEventListener("pointerup",this._onPointerUp)),!this._isTrackingPointer(i)&&(this._addPointer(i),i.pointerType==="touch"?this._onTouchStart(i):this._onMouseDown(i),this._cursorStyle==="grab"&&(this.domElement.style.cursor="grabbing")))}function Xw(i){this.enabled!==!1&&(i.pointerType==="touch"?this._onTouchMove(i):this._onMouseMove(i))}function qw(i){switch(this._removePointer(i),this._pointers.length){case 0:this.domElement.releasePointerCapture(i.pointerId),this.domElement.ownerDocument.removeEventListener("pointermove",this._onPointerMove),this.domElement.ownerDocument.removeEventListener("pointerup",this._onPointerUp),this.dispatchEvent(c0),this.state=wt.NONE,this._cursorStyle==="grab"&&(this.domElement.style.cursor="grab");break;case 1:let e=this._pointers[0],t=this._pointerPositions[e];this._onTouchStart({pointerId:e,pageX:t.x,pageY:t.y});break}}function Yw(i){let e;switch(i.button){case 0:e=this.mouseButtons.LEFT;break;case 1:e=this.mouseButtons.MIDDLE;break;case 2:e=this.mouseButtons.RIGHT;break;default:e=-1}switch(e){case ks.DOLLY:if(this.enableZoom===!1)return;this._handleMouseDownDolly(i),this.state=wt.DOLLY;break;case ks.ROTATE:if(i.ctrlKey||i.metaKey||i.shiftKey){if(this.enablePan===!1)return;this._handleMouseDownPan(i),this.state=wt.PAN}else{if(this.enableRotate===!1)return;this._handleMouseDownRotate(i),this.state=wt.ROTATE}break;case ks.PAN:if(i.ctrlKey||i.metaKey||i.shiftKey){if(this.enableRotate===!1)return;this._handleMouseDownRotate(i),this.state=wt.ROTATE}else{if(this.enablePan===!1)return;this._handleMouseDownPan(i),this.state=wt.PAN}break;default:this.state=wt.NONE}this.state!==wt.NONE&&this.dispatchEvent(Zd)}function $w(i){switch(this.state){case wt.ROTATE:if(this.enableRotate===!1)return;this._handleMouseMoveRotate(i);break;case wt.DOLLY:if(this.enableZoom===!1)return;this._handleMouseMoveDolly(i);break;case wt.PAN:if(this.enablePan===!1)return;this._handleMouseMovePan(i);break}}function Zw(i){this.enabled===!1||this.enableZoom===!1||this.state!==wt.NONE||(i.preventDefault(),this.dispatchEvent(Zd),this._handleMouseWheel(this._customWheelEvent(i)),this.dispatchEvent(c0))}function Kw(i){this.enabled!==!1&&this._handleKeyDown(i)}function Jw(i){switch(this._trackPointer(i),this._pointers.length){case 1:switch(this.touches.ONE){case zs.ROTATE:if(this.enableRotate===!1){this.state=wt.NONE;break}this._handleTouchStartRotate(i),this.state=wt.TOUCH_ROTATE;break;case zs.PAN:if(this.enablePan===!1){this.state=wt.NONE;break}this._handleTouchStartPan(i),this.state=wt.TOUCH_PAN;break;default:this.state=wt.NONE}break;case 2:switch(this.touches.TWO){case zs.DOLLY_PAN:if(this.enableZoom===!1&&this.enablePan===!1)return;this._handleTouchStartDollyPan(i),this.state=wt.TOUCH_DOLLY_PAN;break;case zs.DOLLY_ROTATE:if(this.enableZoom===!1&&this.enableRotate===!1)return;this._handleTouchStartDollyRotate(i),this.state=wt.TOUCH_DOLLY_ROTATE;break;default:this.state=wt.NONE}break;default:this.state=wt.NONE}this.state!==wt.NONE&&this.dispatchEvent(Zd)}function jw(i){switch(this._trackPointer(i),this.state){case wt.TOUCH_ROTATE:if(this.enableRotate===!1)return;this._handleTouchMoveRotate(i),this.update();break;case wt.TOUCH_PAN:if(this.enablePan===!1)return;this._handleTouchMovePan(i),this.update();break;case wt.TOUCH_DOLLY_PAN:if(this.enableZoom===!1&&this.enablePan===!1)return;this._handleTouchMoveDollyPan(i),this.update();break;case wt.TOUCH_DOLLY_ROTATE:if(this.enableZoom===!1&&this.enableRotate===!1)return;this._handleTouchMoveDollyRotate(i),this.update();break;default:this.state=wt.NONE}}function Qw(i){this.enabled!==!1&&i.preventDefault()}function eE(i){i.key==="Control"&&(this._controlActive=!0,this.domElement.ownerDocument.addEventListener("keyup",this._interceptControlUp,{passive:!0,capture:!0}))}function tE(i){i.key==="Control"&&(this._controlActive=!1,this.domElement.ownerDocument.removeEventListener("keyup",this._interceptControlUp,{passive:!0,capture:!0}))}var Fa=`
uniform vec4 section;      // what lies beyond this plane is cut off
uniform bool sectionOn;
in vec3 world;
bool isCut() { return sectionOn && dot(section.xyz, world) > section.w; }
`,h0=`
uniform highp usampler2D states;   // 1 hidden, 2 muted
flat in ivec3 grid;                // first texel, columns, rows
in vec2 within;
int texelOf() {
  ivec2 at = clamp(ivec2(floor(within)), ivec2(0), grid.yz - 1);
  return grid.x + at.y * grid.y + at.x;
}
uint fetch(highp usampler2D table, int texel) {
  return texelFetch(table, ivec2(texel & 2047, texel / 2048), 0).r;
}
`,Kd=`
uniform highp sampler2DShadow shadowMap;
uniform mat4 shadowMatrix;
uniform vec3 sunDirection;
uniform float shadowGrain;   // size of a texel of the map in metres
float sunlight(vec3 point, vec3 normal) {
  float facing = dot(normal, sunDirection);
  if (facing <= 0.0 || sunDirection.z <= 0.0) { return 0.0; }
  vec3 raised = point + normal * shadowGrain * (0.6 + 0.6 * (1.0 - facing));
  vec4 place = shadowMatrix * vec4(raised, 1.0);
  vec3 at = place.xyz * 0.5 + 0.5;
  if (any(lessThan(at, vec3(0.0))) || any(greaterThan(at, vec3(1.0)))) { return 1.0; }
  return texture(shadowMap, at);
}
`,Jd=`
in vec2 place;
in ivec3 lookup;
flat out ivec3 grid;
out vec2 within;
out vec3 world;
void main() {
  grid = lookup;
  within = place;
  world = position;
  gl_Position = projectionMatrix * viewMatrix * vec4(position, 1.0);
}
`,u0=`
precision highp float;
precision highp int;
${Fa}
${h0}
${Kd}
uniform highp usampler2D levels;
uniform sampler2D colors;
uniform float offset;      // value = offset + level * unit
uniform float unit;
uniform vec2 ends;         // of the colours
uniform float steps;
uniform vec2 shownRange;   // values outside it are muted
uniform vec3 muted;
uniform vec3 missing;
uniform vec3 lines;
uniform bool sunOn;
out vec4 color;
void main() {
  if (isCut()) { discard; }
  int texel = texelOf();
  uint state = fetch(states, texel);
  if ((state & 1u) != 0u) { discard; }
  uint level = fetch(levels, texel);
  vec3 paint = missing;
  if (level != 65535u) {
    float value = offset + float(level) * unit;
    float t = clamp((value - ends.x) / max(ends.y - ends.x, 1e-30), 0.0, 1.0);
    if (steps >= 2.0) { t = min(floor(t * steps), steps - 1.0) / (steps - 1.0); }
    paint = texelFetch(colors, ivec2(int(t * 255.0 + 0.5), 0), 0).rgb;
    if (value < shownRange.x || value > shownRange.y) { state |= 2u; }
  }
  if ((state & 2u) != 0u) { paint = muted; }
  vec3 normal = normalize(cross(dFdx(world), dFdy(world)));
  if (sunOn) { paint *= mix(vec3(0.50, 0.52, 0.60), vec3(1.0), sunlight(world, normal)); }
  // Seen from near, cells have edges.
  vec2 grain = fwidth(within);
  if (grid.y * grid.z > 1 && max(grain.x, grain.y) < 0.06) {
    vec2 edge = abs(fract(within + 0.5) - 0.5) / max(grain, vec2(1e-6));
    float near = 1.0 - smoothstep(0.4, 1.1, min(edge.x, edge.y));
    paint = mix(paint, lines, 0.28 * near * (1.0 - smoothstep(0.035, 0.06, max(grain.x, grain.y))));
  }
  color = vec4(paint, 1.0);
}
`,yr=`
out vec3 world;
void main() {
  world = position;
  gl_Position = projectionMatrix * viewMatrix * vec4(position, 1.0);
}
`,d0=`
precision highp float;
${Fa}
${Kd}
uniform vec3 light;      // towards a soft light
uniform vec3 bright;
uniform vec3 dim;
uniform bool sunOn;
out vec4 color;
void main() {
  if (isCut()) { discard; }
  vec3 normal = normalize(cross(dFdx(world), dFdy(world)));
  vec3 paint = mix(dim, bright, 0.5 + 0.5 * dot(normal, light));
  if (sunOn) { paint *= mix(vec3(0.58, 0.60, 0.67), vec3(1.0), sunlight(world, normal)); }
  color = vec4(paint, 1.0);
}
`,jd=`
precision highp float;
${Fa}
uniform vec4 ink;
out vec4 color;
void main() {
  if (isCut()) { discard; }
  color = ink;
}
`,f0=`
precision highp float;
precision highp int;
${Fa}
${h0}
out vec4 color;
void main() {
  if (isCut()) { discard; }
  int texel = texelOf();
  if ((fetch(states, texel) & 1u) != 0u) { discard; }
  uint number = uint(texel) + 1u;
  color = vec4(uvec4(number, number >> 8, number >> 16, number >> 24) & 255u) / 255.0;
}
`,p0=`
precision highp float;
${Fa}
out vec4 color;
void main() {
  if (isCut()) { discard; }
  color = vec4(0.0);
}
`,Qd=`
precision highp float;
in vec3 world;
out vec4 color;
void main() { color = vec4(1.0); }
`,m0=`
in vec3 facing;
in float number;
uniform float rows;
flat out vec3 point;
flat out vec3 surface;
void main() {
  point = position;
  surface = facing;
  float row = floor(number / 2048.0);
  gl_Position = vec4((number - row * 2048.0 + 0.5) / ${2048/2}.0 - 1.0, (row + 0.5) / rows * 2.0 - 1.0, 0.0, 1.0);
  gl_PointSize = 1.0;
}
`,g0=`
precision highp float;
${Kd}
flat in vec3 point;
flat in vec3 surface;
out vec4 color;
void main() { color = vec4(vec3(sunlight(point, surface)), 1.0); }
`;pt.enabled=!1;var Ba=2048,bh=new F(0,0,1);function wo(i){let e=new gt(i);return new F(e.r,e.g,e.b)}function _0(i,e){let t=Math.max(1,Math.ceil(e/2048)),n=i instanceof Uint16Array,s=new hr(i,2048,t,yo,n?Hs:Xn);return s.internalFormat=n?"R16UI":"R8UI",s.unpackAlignment=1,s.needsUpdate=!0,s}function _s(i,e,t,n={}){return new xi({glslVersion:La,vertexShader:i,fragmentShader:e,uniforms:t,...n})}var ef=class{constructor(e,t,n){j(this,"result",e);j(this,"shift",n);j(this,"scene",new ds);j(this,"picking",new ds);j(this,"casting",new ds);j(this,"box",new Gn);j(this,"levels");j(this,"states");j(this,"column",null);j(this,"levelTexture");j(this,"stateTexture");j(this,"own");j(this,"sceneGeometry",new tn);j(this,"edgeGeometry",new tn);j(this,"sceneMeshes",[]);j(this,"edges");j(this,"outline");j(this,"hiddenPairs",[]);let{cells:s,scene:r}=e,o=Math.max(1,Math.ceil(s.texels/2048));this.levels=new Uint16Array(o*2048).fill(65535),this.states=new Uint8Array(o*2048),s.sensorOfTexel&&s.sensorOfTexel.forEach((m,g)=>{this.states[g]=m===Wo?1:0}),this.levelTexture=_0(this.levels,s.texels),this.stateTexture=_0(this.states,s.texels),this.own={...t,levels:{value:this.levelTexture},states:{value:this.stateTexture},offset:{value:0},unit:{value:1},colors:{value:null},ends:{value:new ze(0,1)},steps:{value:0},shownRange:{value:new ze(-3e38,3e38)}};let a=m=>{let g=new Float32Array(m.length);for(let v=0;v<g.length;v+=3)g[v]=m[v]+n.x,g[v+1]=m[v+1]+n.y,g[v+2]=m[v+2]+n.z;return g},l=new tn;l.setAttribute("position",new qt(a(s.mesh.position),3)),l.setAttribute("place",new qt(s.mesh.place,2));let c=new qt(s.mesh.lookup,3);c.gpuType=vo,l.setAttribute("lookup",c),l.setIndex(new qt(s.mesh.index,1)),l.computeBoundingBox(),l.boundingBox&&s.count>0&&this.box.copy(l.boundingBox);let h=s.hasAreas?qi:ci,u={polygonOffset:!0,polygonOffsetFactor:1,polygonOffsetUnits:1},d=(m,g)=>(g.frustumCulled=!1,g.matrixAutoUpdate=!1,m.add(g),g);d(this.scene,new dn(l,_s(Jd,u0,this.own,{side:h,...u}))),d(this.picking,new dn(l,_s(Jd,f0,this.own,{side:h,...u})));let f=new qt(a(r.position),3);this.sceneGeometry.setAttribute("position",f),this.sceneGeometry.setIndex(new qt(r.index,1)),this.edgeGeometry.setAttribute("position",f),this.edgeGeometry.setIndex(new qt(r.edges,1));let p={polygonOffset:!0,polygonOffsetFactor:2,polygonOffsetUnits:4},y={side:ci};if(r.index.length>0){this.sceneMeshes.push(d(this.scene,new dn(this.sceneGeometry,_s(yr,d0,this.own,{...y,...p}))),d(this.picking,new dn(this.sceneGeometry,_s(yr,p0,this.own,{...y,...p})))),this.sceneGeometry.computeBoundingBox(),s.count===0&&this.sceneGeometry.boundingBox&&this.box.copy(this.sceneGeometry.boundingBox);let m=new tn;m.setAttribute("position",f),m.setIndex(new qt(r.index,1)),d(this.casting,new dn(m,_s(yr,Qd,{},y)))}else d(this.casting,new dn(l,_s(yr,Qd,{},y)));this.edges=new ha(this.edgeGeometry,_s(yr,jd,{...this.own,ink:t.edgeInk},{transparent:!0,depthWrite:!1})),d(this.scene,this.edges),this.outline=new ua(new tn,_s(yr,jd,{...this.own,ink:t.pinInk},{transparent:!0,depthTest:!1})),this.outline.visible=!1,this.outline.renderOrder=2,d(this.scene,this.outline)}sensorAt(e){let{sensorOfTexel:t}=this.result.cells;return t?t[e]:e}showColumn(e){this.column=e;let{sensorOfTexel:t}=this.result.cells;t?t.forEach((n,s)=>{this.levels[s]=n===Wo?65535:e.levels[n]}):this.levels.set(e.levels),this.levelTexture.needsUpdate=!0,this.own.offset.value=e.offset*e.step,this.own.unit.value=e.step}paint(e,t,n){this.own.colors.value=t,this.own.ends.value.set(e.lowest,e.highest),this.own.steps.value=e.steps;let s=.25*(this.column?.step??0);this.own.shownRange.value.set(n?n[0]-s:-3e38,n?n[1]+s:3e38)}setStates(e,t){let{sensorOfTexel:n}=this.result.cells;n?n.forEach((s,r)=>{this.states[r]=s===Wo?1:e[s]}):this.states.set(e),this.stateTexture.needsUpdate=!0,this.hideSurroundings(t)}hideSurroundings(e){let{index:t,edges:n,pairs:s,triangleObject:r,edgeObject:o}=this.result.scene,a=[!1,...s.map(([c,h])=>e(c,h))];if(a.every((c,h)=>c===(this.hiddenPairs[h]??!1)))return;this.hiddenPairs=a;let l=(c,h,u)=>{if(!a.includes(!0))return c;let d=new Uint32Array(c.length),f=0;for(let p=0;p<u.length;++p)if(!a[u[p]])for(let y=0;y<h;++y)d[f++]=c[h*p+y];return d.slice(0,f)};this.sceneGeometry.setIndex(new qt(l(t,3,r),1)),this.edgeGeometry.setIndex(new qt(l(n,2,o),1))}showSurroundings(e){for(let t of this.sceneMeshes)t.visible=e==="solid";this.edges.visible=e!=="none"}corners(e){return is(this.result.cells,e).map(t=>new F(t[0],t[1],t[2]).add(this.shift))}mark(e){this.outline.visible=e!==null,e!==null&&(this.outline.geometry.dispose(),this.outline.geometry=new tn().setFromPoints(this.corners(e)))}boxOf(e){let t=new Gn;for(let n=0;n<this.result.cells.count;++n)if(e(n))for(let s of this.corners(n))t.expandByPoint(s);return t}},Sh=class{constructor(e){j(this,"canvas",e);j(this,"models",[]);j(this,"isSoftware");j(this,"frames",0);j(this,"onCamera",()=>{});j(this,"renderer");j(this,"perspective",new Vn(32,1,.1,1e3));j(this,"orthographic",new pr(-1,1,1,-1,.1,1e3));j(this,"camera",this.perspective);j(this,"controls");j(this,"pickTarget",new Pn(1,1));j(this,"shadowTarget",null);j(this,"sunCamera",new pr(-1,1,1,-1,0,1));j(this,"sunScene",new ds);j(this,"sunInks",{path:new cr({color:14719274}),body:new cr({color:16758062}),ray:new dr({color:14719274,transparent:!0,opacity:.5}),ring:new dr({color:9079434,transparent:!0,opacity:.5})});j(this,"shared");j(this,"box",new Gn);j(this,"whole",new Gn);j(this,"shown",[0]);j(this,"pending",!1);j(this,"shadowsOf",null);j(this,"restTimer",0);j(this,"lastFrame",0);j(this,"north",0);j(this,"background","#ffffff");let t=document.createElement("canvas").getContext("webgl2"),n=t?.getExtension("WEBGL_debug_renderer_info"),s=n?String(t?.getParameter(n.UNMASKED_RENDERER_WEBGL)):"";t?.getExtension("WEBGL_lose_context")?.loseContext(),this.isSoftware=/swiftshader|llvmpipe|software|basic render/i.test(s),this.renderer=new gh({canvas:e,antialias:!this.isSoftware,alpha:!1,powerPreference:"high-performance"}),this.renderer.outputColorSpace=lr,this.renderer.autoClear=!1,this.renderer.info.autoReset=!1,e.addEventListener("webglcontextrestored",()=>{this.shadowsOf=null,this.draw()}),this.perspective.up.copy(bh),this.orthographic.up.copy(bh),this.controls=new yh(this.camera,e),this.controls.zoomToCursor=!0,this.controls.screenSpacePanning=!0,this.controls.maxPolarAngle=Math.PI*.98,this.controls.addEventListener("change",()=>{this.onCamera(),this.draw()}),this.shared={section:{value:new Ot(0,0,1,0)},sectionOn:{value:!1},light:{value:new F(-.45,-.35,.82).normalize()},bright:{value:new F},dim:{value:new F},muted:{value:new F},missing:{value:new F},lines:{value:new F},edgeInk:{value:new Ot(0,0,0,.3)},pinInk:{value:new Ot(0,0,0,1)},sunOn:{value:!1},sunDirection:{value:new F(0,0,1)},shadowMap:{value:null},shadowMatrix:{value:new Ut},shadowGrain:{value:.1}}}add(e){let t=this.models[0]?.result??e,n=new F(e.centre[0]-t.centre[0],e.centre[1]-t.centre[1],e.centre[2]-t.centre[2]);this.models.length===0&&(this.north=e.record.north);let s=new ef(e,this.shared,n);this.models.push(s),this.box.union(s.box),this.whole.union(s.box);let r=new Gn().setFromArray(e.scene.position);return r.isEmpty()||this.whole.union(r.translate(n)),this.shadowsOf=null,s}show(e){this.shown=e,this.controls.zoomToCursor=e.length===1,this.resize()}setTheme(e){this.background=e.background,this.shared.bright.value.copy(wo(e.bright)),this.shared.dim.value.copy(wo(e.dim)),this.shared.muted.value.copy(wo(e.muted)),this.shared.missing.value.copy(wo(e.missing)),this.shared.lines.value.copy(wo(e.cellLine));let t=wo(e.line);this.shared.edgeInk.value.set(t.x,t.y,t.z,e.lineOpacity),this.shared.pinInk.value.set(t.x,t.y,t.z,1),this.draw()}setSection(e){if(this.shared.sectionOn.value=e!==null,e){let{axis:t,place:n,flipped:s}=e,r=s?-1:1,o=this.whole.min[t]+(this.whole.max[t]-this.whole.min[t])*n;this.shared.section.value.set(t==="x"?r:0,t==="y"?r:0,t==="z"?r:0,r*o)}this.draw()}sectionPlace(e){let{axis:t,place:n}=e,s=this.whole.min[t],r=this.models[0].result.centre[{x:0,y:1,z:2}[t]];return s+(this.whole.max[t]-s)*n+(t==="z"?r:0)}setSun(e,t,n){this.shared.sunOn.value=e!==null;for(let s of this.sunScene.children)s.geometry.dispose();if(this.sunScene.clear(),e){let s=new F(...nr(e,this.north));this.shared.sunDirection.value.copy(s),this.shadowsOf=null;let r=this.box.getCenter(new F);r.z=this.box.min.z;let o=this.domeRadius,a=f=>new F(...nr(f,this.north)).multiplyScalar(o).add(r),l=this.sunInks,c=(f,p)=>{this.sunScene.add(new fr(new tn().setFromPoints(f),p))},h=t.filter(f=>f.altitude>=0);if(h.length>1){let f=new uo(h.map(a)),p=new va(f,h.length*2,o*.0035,6);this.sunScene.add(new dn(p,l.path))}let u=new fo(o*.009,12,8);for(let f of n)if(f.sun.altitude>=0){let p=new dn(u,l.path);p.position.copy(a(f.sun)),this.sunScene.add(p)}if(e.altitude>=-.3){let f=new fo(o*.032,24,16),p=new dn(f,l.body);p.position.copy(a(e)),this.sunScene.add(p),c([r,a(e)],l.ray)}let d=[];for(let f=0;f<=72;++f)d.push(a({azimuth:5*f,altitude:0}));c(d,l.ring)}this.draw()}get domeRadius(){return .47*this.box.getSize(new F).length()}domeBox(e){let t=this.box.getCenter(new F);t.z=this.box.min.z;let n=this.box.clone();for(let s of e.filter(r=>r.altitude>=0)){let r=new F(...nr(s,this.north)).multiplyScalar(1.05*this.domeRadius);n.expandByPoint(r.add(t))}return n}onDome(e){let t=this.box.getCenter(new F);t.z=this.box.min.z;let n=this.domeRadius,s=new F(...nr(e,this.north)).multiplyScalar(n);return this.toScreen(s.add(t))}shadows(){if(!this.shadowTarget){let e=new Pi(Ba,Ba,hi);e.compareFunction=Ia,e.magFilter=Rn,e.minFilter=Rn,this.shadowTarget=new Pn(Ba,Ba,{depthTexture:e,depthBuffer:!0})}return this.shadowTarget}drawShadows(e){if(this.shadowsOf===e)return;let t=this.shared.sunDirection.value,n=this.sunCamera;n.up.copy(Math.abs(t.z)>.99?new F(0,1,0):bh);let s=this.whole.getCenter(new F);n.position.copy(s).add(t),n.lookAt(s),n.updateMatrixWorld();let r=new Gn,o=n.matrixWorld.clone().invert();for(let h=0;h<8;++h){let u=new F(h&1?this.whole.max.x:this.whole.min.x,h&2?this.whole.max.y:this.whole.min.y,h&4?this.whole.max.z:this.whole.min.z);r.expandByPoint(u.applyMatrix4(o))}let a=.001*r.getSize(new F).length();n.left=r.min.x-a,n.right=r.max.x+a,n.bottom=r.min.y-a,n.top=r.max.y+a,n.near=-r.max.z-a,n.far=-r.min.z+a,n.updateProjectionMatrix();let l=Math.max(n.right-n.left,n.top-n.bottom)/Ba;this.shared.shadowGrain.value=l,this.shared.shadowMatrix.value.multiplyMatrices(n.projectionMatrix,o);let c=this.shadows();this.shared.shadowMap.value=null,this.renderer.setRenderTarget(c),this.renderer.setClearColor(16777215,1),this.renderer.clear(!0,!0,!1),this.renderer.render(e.casting,n),this.renderer.setRenderTarget(null),this.shared.shadowMap.value=c.depthTexture,this.shadowsOf=e}litAt(e,t=null,n=0){let s=this.models[n],r=this.models[0].result.centre,o=e.length/3,a=Math.max(1,Math.ceil(o/2048));this.drawShadows(s);let l=new Float32Array(3*o),c=new Float32Array(3*o),h=new Float32Array(o);for(let g=0;g<o;++g){for(let v=0;v<3;++v)l[3*g+v]=e[3*g+v]-r[v],c[3*g+v]=t?t[3*g+v]:v===2?1:0;h[g]=g}let u=new tn;u.setAttribute("position",new qt(l,3)),u.setAttribute("facing",new qt(c,3)),u.setAttribute("number",new qt(h,1));let d=_s(m0,g0,{...this.shared,rows:{value:a}},{depthTest:!1,depthWrite:!1}),f=new ds,p=new da(u,d);p.frustumCulled=!1,f.add(p);let y=new Pn(2048,a);this.renderer.setRenderTarget(y),this.renderer.setClearColor(0,1),this.renderer.clear(),this.renderer.render(f,this.camera);let m=new Uint8Array(4*2048*a);return this.renderer.readRenderTargetPixels(y,0,0,2048,a,m),this.renderer.setRenderTarget(null),y.dispose(),u.dispose(),d.dispose(),Float32Array.from({length:o},(g,v)=>m[4*v]/255)}get isParallel(){return this.camera===this.orthographic}get distance(){return this.camera.position.distanceTo(this.controls.target)}get height(){return this.isParallel?(this.orthographic.top-this.orthographic.bottom)/this.orthographic.zoom:2*this.distance*Math.tan(this.perspective.fov*Math.PI/360)}setParallel(e){if(e===this.isParallel)return;let t=this.height,n=e?this.orthographic:this.perspective,s=this.camera.position.clone().sub(this.controls.target).normalize(),r=e?Math.max(this.distance,this.whole.getSize(new F).length()):t/(2*Math.tan(this.perspective.fov*Math.PI/360));n.position.copy(this.controls.target).addScaledVector(s,r),this.orthographic.zoom=1,this.orthographic.top=t/2,this.orthographic.bottom=-t/2,this.camera=n,this.controls.object=n,this.controls.update(),this.resize()}look(e,t,n=this.box){if(n.isEmpty())return;let s=n.getCenter(new F),r=Math.min(Math.max(t,-88),89.9),o=new F(...nr({azimuth:e,altitude:r},this.north)),a=new F().crossVectors(bh,o).normalize(),l=new F().crossVectors(o,a),c=this.aspect(),h=Math.tan(this.perspective.fov*Math.PI/360),u=n.getSize(new F).length(),d=Array.from({length:8},(y,m)=>new F(m&1?n.max.x:n.min.x,m&2?n.max.y:n.min.y,m&4?n.max.z:n.min.z)),f=Math.max(u/h,1),p=1;for(let y=0;y<8;++y){let m=[1/0,-1/0,1/0,-1/0];for(let A of d){let S=A.clone().sub(s),C=this.isParallel?1:Math.max(f-S.dot(o),.001)*h,T=S.dot(a)/C,x=S.dot(l)/C;m[0]=Math.min(m[0],T),m[1]=Math.max(m[1],T),m[2]=Math.min(m[2],x),m[3]=Math.max(m[3],x)}let g=Math.max((m[1]-m[0])/(2*c),(m[3]-m[2])/2,1e-6)*1.1,v=this.isParallel?1:f*h;s.addScaledVector(a,(m[0]+m[1])/2*v),s.addScaledVector(l,(m[2]+m[3])/2*v),this.isParallel?(p=Math.max(g,.5),f=u+p):f=Math.max(f*g,.6*u,1)}this.controls.target.copy(s),this.camera.position.copy(s).addScaledVector(o,f),this.isParallel&&(this.orthographic.zoom=1,this.orthographic.top=p,this.orthographic.bottom=-p,this.orthographic.left=-p*c,this.orthographic.right=p*c),this.controls.update(),this.onCamera(),this.draw()}bearing(){let e=this.camera.position.clone().sub(this.controls.target).normalize();return{azimuth:(Math.atan2(e.x,e.y)*180/Math.PI-this.north+720)%360,altitude:Math.asin(e.z)*180/Math.PI}}orbit(e,t){let{azimuth:n,altitude:s}=this.bearing(),r=Math.min(Math.max(s+t,-80),89.9),o=new F(...nr({azimuth:n+e,altitude:r},this.north)),a=this.distance;this.camera.position.copy(this.controls.target).addScaledVector(o,a),this.controls.update(),this.onCamera(),this.draw()}pan(e,t){let n=new F().setFromMatrixColumn(this.camera.matrix,0).multiplyScalar(e*this.height).addScaledVector(new F().setFromMatrixColumn(this.camera.matrix,1),t*this.height);this.camera.position.add(n),this.controls.target.add(n),this.controls.update(),this.onCamera(),this.draw()}zoom(e){this.isParallel?(this.orthographic.zoom/=e,this.orthographic.updateProjectionMatrix()):this.camera.position.sub(this.controls.target).multiplyScalar(e).add(this.controls.target),this.controls.update(),this.onCamera(),this.draw()}aspect(){let{width:e,height:t}=this.size();return Math.max(e/this.shown.length,1)/Math.max(t,1)}size(){return{width:this.canvas.clientWidth,height:this.canvas.clientHeight}}resize(){let{width:e,height:t}=this.size();if(e===0||t===0)return;this.renderer.setSize(e,t,!1);let n=this.aspect();this.perspective.aspect=n;let s=(this.orthographic.top-this.orthographic.bottom)/2;this.orthographic.left=-s*n,this.orthographic.right=s*n,this.onCamera(),this.draw()}draw(){this.pending||(this.pending=!0,requestAnimationFrame(()=>{this.pending&&this.drawNow()}))}setClip(){let e=this.whole.getBoundingSphere(new Xi),t=e.radius*1.01;this.shared.sunOn.value&&(t=Math.max(t,1.5*this.box.getSize(new F).length()));let n=this.camera.position.distanceTo(e.center),s=n+t;this.camera.near=this.isParallel?n-t:Math.max(s/5e3,n-t),this.camera.far=s,this.camera.updateProjectionMatrix(),this.camera.updateMatrixWorld()}drawNow(e=!1){this.pending=!1;let t=performance.now(),n=window.devicePixelRatio||1,s=this.isSoftware?e?2:1:Math.min(n,2);if(this.renderer.getPixelRatio()!==s){this.renderer.setPixelRatio(s);let{width:c,height:h}=this.size();this.renderer.setSize(c,h,!1)}this.setClip();let{width:r,height:o}=this.size();this.renderer.setRenderTarget(null),this.renderer.setClearColor(this.background,1),this.renderer.setScissorTest(!1),this.renderer.setViewport(0,0,r,o),this.renderer.clear();let a=r/this.shown.length;if(this.renderer.setScissorTest(this.shown.length>1),this.shown.forEach((c,h)=>{let u=this.models[c];this.shared.sunOn.value&&(this.renderer.setScissorTest(!1),this.drawShadows(u),this.renderer.setScissorTest(this.shown.length>1),this.renderer.setClearColor(this.background,1)),this.renderer.setViewport(h*a,0,a,o),this.renderer.setScissor(h*a,0,a,o),this.renderer.render(u.scene,this.camera),this.shared.sunOn.value&&this.renderer.render(this.sunScene,this.camera)}),this.isSoftware){let c=this.renderer.getContext();c.readPixels(0,0,1,1,c.RGBA,c.UNSIGNED_BYTE,new Uint8Array(4))}this.frames+=1;let l=performance.now()-t;return e||(this.lastFrame=l,window.clearTimeout(this.restTimer),this.isSoftware&&this.lastFrame<300&&(this.restTimer=window.setTimeout(()=>{this.drawNow(!0)},220))),l}snapshot(){this.drawNow(!0);let e=document.createElement("canvas");return e.width=this.canvas.width,e.height=this.canvas.height,e.getContext("2d")?.drawImage(this.canvas,0,0),e}pick(e,t){let{width:n,height:s}=this.size(),r=n/this.shown.length,o=Math.min(Math.max(Math.floor(e/r),0),this.shown.length-1),a=this.models[this.shown[o]];this.setClip(),this.camera.setViewOffset(r,s,e-o*r,t,1,1),this.renderer.setRenderTarget(this.pickTarget),this.renderer.setScissorTest(!1),this.renderer.setClearColor(0,0),this.renderer.clear(),this.renderer.render(a.picking,this.camera);let l=new Uint8Array(4);this.renderer.readRenderTargetPixels(this.pickTarget,0,0,1,1,l),this.renderer.setRenderTarget(null),this.camera.clearViewOffset();let c=l[0]+256*l[1]+65536*l[2]+16777216*l[3]-1;return c<0?null:{model:a,sensor:a.sensorAt(c)}}toScreen(e,t=0){if(this.camera.updateMatrixWorld(),e.clone().applyMatrix4(this.camera.matrixWorldInverse).z>=0)return null;let n=e.clone().project(this.camera),{width:s,height:r}=this.size(),o=s/this.shown.length;return{x:t*o+(.5+.5*n.x)*o,y:(.5-.5*n.y)*r}}cellOnScreen(e,t){let n=e.corners(t),s=n.reduce((o,a)=>o.add(a),new F).multiplyScalar(1/n.length),r=Math.max(this.shown.indexOf(this.models.indexOf(e)),0);return this.toScreen(s,r)}isLit(e,t){let n=is(e.result.cells,t),{centre:s}=e.result,r=[0,1,2].map(a=>n.reduce((l,c)=>l+c[a],0)/n.length+s[a]),o=e.result.cells.side[t]===Xo?this.shared.sunDirection.value.toArray():fl(n);return this.litAt(r,o,this.models.indexOf(e))[0]>=.5}},x0=new Map;function v0(i){let e=x0.get(i);return e||(e=new hr(Vr(i),256,1),e.needsUpdate=!0,x0.set(i,e)),e}var y0=`three 0.187.0

The MIT License

Copyright \xA9 2010-2026 three.js authors

Permission is hereby granted, free of charge, to any person obtaining a copy
of this software and associated documentation files (the "Software"), to deal
in the Software without restriction, including without limitation the rights
to use, copy, modify, merge, publish, distribute, sublicense, and/or sell
copies of the Software, and to permit persons to whom the Software is
furnished to do so, subject to the following conditions:

The above copyright notice and this permission notice shall be included in
all copies or substantial portions of the Software.

THE SOFTWARE IS PROVIDED "AS IS", WITHOUT WARRANTY OF ANY KIND, EXPRESS OR
IMPLIED, INCLUDING BUT NOT LIMITED TO THE WARRANTIES OF MERCHANTABILITY,
FITNESS FOR A PARTICULAR PURPOSE AND NONINFRINGEMENT. IN NO EVENT SHALL THE
AUTHORS OR COPYRIGHT HOLDERS BE LIABLE FOR ANY CLAIM, DAMAGES OR OTHER
LIABILITY, WHETHER IN AN ACTION OF CONTRACT, TORT OR OTHERWISE, ARISING FROM,
OUT OF OR IN CONNECTION WITH THE SOFTWARE OR THE USE OR OTHER DEALINGS IN
THE SOFTWARE.

----------

uplot 1.6.32

The MIT License (MIT)

Copyright (c) 2022 Leon Sorokin

Permission is hereby granted, free of charge, to any person obtaining a copy
of this software and associated documentation files (the "Software"), to deal
in the Software without restriction, including without limitation the rights
to use, copy, modify, merge, publish, distribute, sublicense, and/or sell
copies of the Software, and to permit persons to whom the Software is
furnished to do so, subject to the following conditions:

The above copyright notice and this permission notice shall be included in
all copies or substantial portions of the Software.

THE SOFTWARE IS PROVIDED "AS IS", WITHOUT WARRANTY OF ANY KIND, EXPRESS OR
IMPLIED, INCLUDING BUT NOT LIMITED TO THE WARRANTIES OF MERCHANTABILITY,
FITNESS FOR A PARTICULAR PURPOSE AND NONINFRINGEMENT. IN NO EVENT SHALL THE
AUTHORS OR COPYRIGHT HOLDERS BE LIABLE FOR ANY CLAIM, DAMAGES OR OTHER
LIABILITY, WHETHER IN AN ACTION OF CONTRACT, TORT OR OTHERWISE, ARISING FROM,
OUT OF OR IN CONNECTION WITH THE SOFTWARE OR THE USE OR OTHER DEALINGS IN
THE SOFTWARE.
`;var sE={background:"#f3f2ee",bright:"#f1efea",dim:"#b9b7b1",muted:"#dcdad4",missing:"#9e9e9e",line:"#23262b",lineOpacity:.3,cellLine:"#ffffff"},rE={background:"#15171b",bright:"#4a4e56",dim:"#23262b",muted:"#30343b",missing:"#6e6e6e",line:"#dadde3",lineOpacity:.24,cellLine:"#101010"},Mh=class{constructor(e){j(this,"view");j(this,"results",[]);j(this,"legend",new tr);j(this,"app");j(this,"panel",X("aside",{id:"panel","aria-label":"Results"}));j(this,"stage",X("main",{id:"stage"}));j(this,"canvas",X("canvas",{class:"model",tabindex:0,role:"application","aria-label":"The model in 3-D. Arrow keys turn it, with Shift they move it, plus and minus zoom, 0 shows all of it."}));j(this,"hint",X("div",{id:"hint",hidden:!0}));j(this,"pin",X("div",{id:"pin",hidden:!0}));j(this,"scale",X("div",{id:"scale","aria-hidden":"true"}));j(this,"hours",[]);j(this,"besideNames",[]);j(this,"said",X("p",{class:"hidden","aria-live":"polite"}));j(this,"mode",{kind:"one",result:0});j(this,"quantity","");j(this,"step",-1);j(this,"ends",[null,null]);j(this,"colorSteps",0);j(this,"range",null);j(this,"hidden",new Map);j(this,"isolated",null);j(this,"shown",null);j(this,"besides",[0]);j(this,"difference",null);j(this,"pinned",null);j(this,"section",{axis:"z",place:.5,flipped:!1});j(this,"isCut",!1);j(this,"sunOn",!1);j(this,"sunWasOn",!1);j(this,"day",172);j(this,"minute",720);j(this,"sunPath",null);j(this,"playing",0);j(this,"groups");j(this,"figures",X("div",{class:"figures"}));j(this,"besideNote",X("p",{class:"quiet",hidden:!0}));j(this,"enclosedNote",X("p",{class:"quiet",hidden:!0}));j(this,"quantitySelect",X("select",{id:"quantity"}));j(this,"stepField",X("div"));j(this,"stepNote",X("p",{class:"quiet"}));j(this,"cellPlace",X("div"));j(this,"cellSun",X("p",{class:"quiet"}));j(this,"groupPlace",X("div"));j(this,"groupCard",X("details",{hidden:!0,open:!0},X("summary",{},"Group"),this.groupPlace));j(this,"charts",new Map);j(this,"cellCard",X("details",{hidden:!0},X("summary",{},"Cell"),this.cellPlace));j(this,"sunCard",null);j(this,"sunParts",null);j(this,"parallelButton");j(this,"onStopPlaying",()=>{});j(this,"updateSunText",()=>{});this.stage.append(this.canvas,this.scale,this.pin,this.hint,this.said),this.app=X("div",{id:"app"},this.panel,this.stage),e.append(this.app),this.view=new Sh(this.canvas);let t=window.matchMedia("(prefers-color-scheme: dark)"),n=()=>{this.view.setTheme(t.matches?rE:sE),this.legend.draw()};t.addEventListener("change",n),n()}begin(e){this.results.push(e),this.quantity=this.choices[0].name,this.view.add(e),this.view.onCamera=()=>this.followCamera(),this.stage.append(this.legend.element),this.paint(),this.view.resize(),this.view.look(155,42),this.view.drawNow()}complete(e){for(let s of e)this.results.push(s),this.view.add(s);this.besides=lm(this.results,4);let t=this.results[0],{record:n}=t;document.title=`${n.name} \u2013 solar radiation`,n.site&&(this.sunPath=new xl(n.site,t.floats("sunDeclination"),t.floats("sunEquation"))),this.groups=new pl(t.hasObjects&&n.names.length>0),this.build(),this.toolbar(),this.keyboard(),this.pointer(),new ResizeObserver(()=>{this.view.resize(),this.legend.draw()}).observe(this.stage),this.legend.onEnds=(s,r)=>{this.ends=[s,r],this.paint()},this.legend.onRange=s=>{this.range=s,this.paint()},this.refresh(),this.view.resize(),this.followCamera()}get first(){return this.results[this.mode.kind==="one"?this.mode.result:0]}get compared(){return this.mode.kind==="difference"?[this.results[0],this.results[this.mode.with]]:this.shownModels().map(e=>this.results[e])}get choices(){return gl(this.compared)}columnOf(e){return this.step>=0?this.step<e.record.steps.length?e.column("step",this.step):null:e.columnNamed(this.quantity)}get column(){let e=this.columnOf(this.first);if(!e)throw new Error("the result has no such column");if(this.mode.kind==="difference"){let t=this.columnOf(this.results[this.mode.with]);if(!t)throw new Error("the other result has no such column");return(this.difference?.own!==e||this.difference.other!==t)&&(this.difference={own:e,other:t,column:om(e,t)}),this.difference.column}return e}scaleOf(e){let[t,n]=this.commonEnds(e);return{lowest:this.ends[0]??t,highest:this.ends[1]??n,steps:e.unit==="0 or 1"?2:this.colorSteps,scheme:e.diverging?"diverging":"sequential"}}commonEnds(e){if(e.unit==="0 or 1")return[0,1];let t=this.mode.kind==="difference"?[e.ends]:this.step>=0?this.results.filter(r=>bu([this.first,r])).map(({record:r})=>r.step_ends):this.results.map(r=>this.columnOf(r)).filter(r=>r?.unit===e.unit).map(r=>r.ends),n=Math.min(...t.map(r=>r[0])),s=Math.max(...t.map(r=>r[1]));if(e.diverging){let r=Math.max(Math.abs(n),Math.abs(s))||1;return[-r,r]}return s>n?[n,s]:[n-.5,n+.5]}paint(){let e=this.column,t=this.scaleOf(e),n=v0(t.scheme);this.shownModels().forEach(o=>{let a=this.view.models[o],l=this.mode.kind==="difference"?e:this.columnOf(this.results[o]),{count:c}=this.results[o].cells,h=l??new er("","","",1,0,0,new Uint16Array(c).fill(65535));a.column!==h&&a.showColumn(h),a.paint(t,n,this.range)});let r=gu(this.first.cells,e,t.lowest,t.highest,tr.bins,this.shown);this.legend.show(this.legendContent(e,t,r)),this.view.draw()}legendContent(e,t,n){return{title:this.columnTitle(e),unit:ni(e.unit),label:Qs(e.unit)?null:s=>e.text(s),scale:t,step:e.step,histogram:n,range:this.range,hasOwnEnds:this.ends[0]!==null||this.ends[1]!==null,filterText:this.filterText(e)}}columnTitle(e){let{mode:t}=this;return t.kind==="difference"?`${e.title.replace(/, difference$/,"")}: ${this.results[t.with].record.name.slice(0,40)} less ${this.results[0].record.name.slice(0,40)}`:e.title}filterText(e){if(!this.range)return"";let[t,n]=this.range,{cells:s}=this.first,r=nm(s,e,t,n,this.shown),o=ni(e.unit),a=Qs(e.unit),l=s.hasAreas?`${Hn(r.area,4)} m\xB2`:`${r.cells} points`,c=h=>a?Hn(h,3):e.text(h);return n===1/0?`${l} above ${c(t)} ${o}`:t===-1/0?`${l} below ${c(n)} ${o}`:`${l} between ${c(t)} and ${c(n)} ${o}`}shownModels(){return this.mode.kind==="beside"?this.besides:[this.mode.kind==="one"?this.mode.result:0]}isHiddenKey(e){return this.hidden.has(`${e.kind}:${e.name}`)}refresh(){this.view.models.forEach((e,t)=>{let n=this.results[t],s=new Uint8Array(n.cells.count),r=(o,a,l)=>{let{names:c,of:h}=ml(n,o.kind),u=c.map(d=>d===o.name);for(let d=0;d<s.length;++d)u[h[d]]!==l&&(s[d]|=a)};for(let o of this.hidden.values())r(o,1,!1);if(this.isolated&&r(this.isolated,2,!0),e.setStates(s,(o,a)=>this.isHiddenKey({kind:"object",name:n.name(o)})||this.isHiddenKey({kind:"material",name:n.name(a)})),n===this.first){let o=this.hidden.size>0||this.isolated!==null;this.shown=o?s.map(a=>a===0?1:0):null}}),this.showValues()}showValues(){this.paint();let e=this.column;this.groups.show(this.first,e,t=>this.isHiddenKey(t)),this.showFigures(e),this.showGroup(e),this.showPinned()}showFigures(e){let{cells:t}=this.first,[n]=Vo(t,e,null,1,this.shown),s=ni(e.unit),r=zo(n.whole),o=(c,h)=>X("div",{},X("b",{},c),X("span",{},h)),a=e.unit==="0 or 1";this.figures.replaceChildren(o(Ho(n.mean,e.unit),a?t.hasAreas?"of the area":"of the points":`mean${s?`, ${s}`:""}`),o(Hn(n.area,5).replace(/\.\d+$/,""),t.hasAreas?"m\xB2":"points"),e.unit==="kWh/m2"&&t.hasAreas?o(Hn(n.whole*r.factor),`${r.unit} in all`):a?"":o(n.cells>0?this.spanText(e,n.lowest,n.highest):"\u2013","range"));let l=this.first.enclosed?.reduce((c,h)=>c+h,0)??0;this.besideNote.hidden=this.mode.kind!=="beside",this.besideNote.textContent=`Figures, groups and the bar's areas are those of ${this.first.record.name.slice(0,80)}.`,this.enclosedNote.hidden=l===0,this.enclosedNote.textContent=`${Wr(l,0)} enclosed ${l===1?"cell is":"cells are"} grey and left out of all sums.`}spanText(e,t,n){let s=r=>Qs(e.unit)?Hn(r,3):e.text(r);return`${s(t)}\u2013${s(n)}`}build(){let{record:e}=this.results[0],t=s=>e.facts.find(r=>r[0]===s)?.[1]??"",n=X("button",{id:"grip",type:"button","aria-label":"Make the panel smaller or larger",click:()=>{this.app.classList.toggle("low")}});this.quantitySelect.addEventListener("change",()=>{this.quantity=this.quantitySelect.value,this.step=-1,this.ends=[null,null],this.range=null,this.buildSteps(),this.showValues()}),this.buildQuantities(),this.groups.onChoose=s=>{this.isolated=s,this.refresh()},this.groups.onHide=(s,r)=>{r?this.hidden.set(`${s.kind}:${s.name}`,s):this.hidden.delete(`${s.kind}:${s.name}`),this.refresh()},this.groups.onKind=()=>this.refresh(),this.panel.append(n,X("h1",{title:e.name.slice(0,300)},X("bdi",{},e.name.slice(0,300)||"Results")),X("p",{class:"sub"},X("bdi",{},[t("Site"),t("Period")||t("Year")].filter(Boolean).join(" \xB7 "))),this.results.length>1?this.resultSwitch():"",X("label",{class:"field",for:"quantity"},"Show"),this.quantitySelect,this.stepField,this.figures,this.besideNote,this.enclosedNote,this.cellCard,this.groupCard,X("details",{open:!0},X("summary",{},"Groups"),this.groups.element),this.sunPath?this.buildSun():"",this.buildSection(),this.buildLook(),this.buildFacts())}resultSwitch(){let e=this.results.map((o,a)=>[{kind:"one",result:a},o.record.name]),t=[];if(this.besides.length>1&&(e.push([{kind:"beside"},"Side by side"]),this.besides.length<this.results.length)){let o=this.besides.map(a=>this.results[a].record.name.slice(0,80)).join(", ");t.push(`Side by side stand the first that have a quantity in common, at most four: ${o}.`)}let[n,...s]=this.results;s.forEach((o,a)=>{let l=o.record.name.slice(0,80);gl([n,o]).length===0?t.push(`No difference with ${l}: it has no quantity in common with the first result.`):_l(n,o)?e.push([{kind:"difference",with:a+1},s.length===1?"Difference":`Difference ${l}`]):t.push(`No difference with ${l}: its cells are not those of the first result.`)});let r=X("div",{class:"switch",role:"group","aria-label":"Result"});return e.forEach(([o,a],l)=>{r.append(X("button",{type:"button",title:a.slice(0,300),"aria-pressed":l===0?"true":"false",click:c=>{for(let h of r.children)h.setAttribute("aria-pressed",h===c.currentTarget?"true":"false");this.setMode(o)}},X("bdi",{},a.slice(0,80))))}),X("div",{},r,...t.map(o=>X("p",{class:"quiet"},X("bdi",{},o))))}setMode(e){this.stopPlaying();let t=e.kind==="beside"!=(this.mode.kind==="beside");if(this.mode=e,this.movePin(),this.buildQuantities(),this.ends=[null,null],this.range=null,this.view.show(this.shownModels()),t){let{azimuth:n,altitude:s}=this.view.bearing();this.view.look(n,s)}for(let n of this.besideNames.splice(0))n.remove();if(e.kind==="beside"){let n=this.shownModels();n.forEach((s,r)=>{let o=X("div",{class:"beside"},X("bdi",{},this.results[s].record.name.slice(0,80)));o.style.left=`${100*(r+.5)/n.length}%`,this.besideNames.push(o),this.stage.append(o)})}this.refresh()}movePin(){let[e,...t]=this.shownModels(),n=this.view.models[e];if(this.pinned&&![e,...t].some(s=>this.view.models[s]===this.pinned?.model)){let{sensor:s}=this.pinned;this.pinned=_l(this.pinned.model.result,n.result)?{model:n,sensor:s}:null}}buildQuantities(){let{choices:e}=this;this.quantitySelect.replaceChildren(...e.map(({name:t,title:n})=>X("option",{value:t},n))),e.some(({name:t})=>t===this.quantity)||(this.quantity=e[0].name,this.step=-1),this.quantitySelect.value=this.quantity,this.buildSteps()}buildSteps(){this.stepField.querySelector("[aria-pressed=true]")&&this.stopPlaying();let{compared:e}=this,{steps:t,columns:n}=e[0].record,s=e.every(({record:u})=>u.columns[0].name===this.quantity);if(t.length===0||!s||!bu(e)){this.step=-1,this.stepField.replaceChildren();return}let r="Whole period",o=X("span",{},this.step<0?r:pu(t[this.step].title)),a=X("input",{type:"range",min:0,max:t.length,step:1,value:this.step+1,"aria-label":`Part of the period, ${n[0].title}`}),l=u=>{u===0!=this.step<0&&(this.ends=[null,null],this.range=null),a.value=String(u),this.step=u-1,o.textContent=u===0?r:pu(t[u-1].title),a.setAttribute("aria-valuetext",o.textContent),this.showValues()};a.addEventListener("input",()=>l(Number(a.value)));let c=this.results.reduce((u,{record:d})=>Math.max(u,d.steps_in_all),0)-t.length;this.stepNote.hidden=c===0,this.stepNote.textContent=`${t.length} of ${t.length+c} parts of the period, to keep the page small.`;let h=this.playButton("Play through the period",Math.max(150,Math.min(700,18e3/t.length)),()=>{l(Number(a.value)>=t.length?1:Number(a.value)+1)});this.stepField.replaceChildren(X("div",{class:"clock"},o),X("div",{class:"row"},h,X("div",{class:"grow"},a)),this.stepNote)}playButton(e,t,n){let s="M8 5.500v13l11-6.500z",r=X("button",{type:"button",class:"solid",title:e,"aria-label":e,"aria-pressed":"false"},Si(s));return r.addEventListener("click",()=>{let o=r.getAttribute("aria-pressed")==="true";this.stopPlaying(),o||(r.setAttribute("aria-pressed","true"),r.replaceChildren(Si("M8.500 6v12M15.500 6v12")),this.playing=window.setInterval(n,t),this.onStopPlaying=()=>{r.setAttribute("aria-pressed","false"),r.replaceChildren(Si(s))},n())}),r}stopPlaying(){window.clearInterval(this.playing),this.onStopPlaying(),this.onStopPlaying=()=>{}}buildSun(){let e=X("input",{type:"range",min:1,max:365,value:this.day,"aria-label":"Date"}),t=X("input",{type:"range",min:0,max:1435,step:5,value:this.minute,"aria-label":"Time of day"}),n=X("input",{type:"checkbox"}),s=X("p",{class:"quiet"}),r=this.playButton("Play through the day",120,()=>{let h=this.sunPath?.times(this.day)??{rise:0,set:1440},u=this.minute+10;this.minute=u>h.set||u<h.rise?Math.ceil(h.rise/5)*5:u,this.sunOn=!0,this.showSun()});n.addEventListener("change",()=>{this.sunOn=n.checked,n.checked||this.stopPlaying(),this.showSun()});let o=()=>{this.day=Number(e.value),this.minute=Number(t.value),this.sunOn=!0,this.showSun()};e.addEventListener("input",o),t.addEventListener("input",o),this.sunParts={day:e,time:t,text:s,on:n,play:r};let a=X("b"),l=X("b"),c=X("details",{open:!0},X("summary",{},"Sun and shadows"),X("label",{},n,"Show at a moment"),X("div",{class:"clock"},a,X("span",{},"date")),e,X("div",{class:"clock"},l,X("span",{},"clock of the site, no summer time")),X("div",{class:"row"},r,X("div",{class:"grow"},t)),s);return this.updateSunText=()=>{a.textContent=Gr(this.day),l.textContent=js(this.minute),e.setAttribute("aria-valuetext",a.textContent),t.setAttribute("aria-valuetext",l.textContent)},this.sunCard=c,this.showSun(),c}showSun(){if(!this.sunPath||!this.sunParts)return;let e=this.sunPath,t=this.sunParts;t.on.checked=this.sunOn,t.day.value=String(this.day),t.time.value=String(this.minute),this.updateSunText();let n=e.at(this.day,this.minute),s=e.times(this.day),r=n.altitude>-.27?`Sun ${n.altitude.toFixed(1)}\xB0 high, in the ${fu(n.azimuth)} (${n.azimuth.toFixed(0)}\xB0).`:"The sun is down.";t.text.textContent=s?`${r} Up from ${js(s.rise)} to ${js(s.set)}.`:r;for(let l of this.hours.splice(0))l.remove();if(!this.sunOn){this.sunWasOn=!1,this.view.setSun(null,[],[]),this.showCellSun();return}let o=Array.from({length:145},(l,c)=>e.at(this.day,10*c)),a=Array.from({length:25},(l,c)=>({hour:c,sun:e.at(this.day,60*c)})).filter(l=>l.sun.altitude>0);for(let l of a)if(l.hour%3===0){let c=X("div",{class:"hour"},`${l.hour}`);c.dataset.altitude=String(l.sun.altitude),c.dataset.azimuth=String(l.sun.azimuth),this.hours.push(c),this.stage.append(c)}if(this.view.setSun(n,o,a),!this.sunWasOn){let{azimuth:l,altitude:c}=this.view.bearing();this.view.look(l,Math.min(c,28),this.view.domeBox(o))}this.sunWasOn=!0,this.followCamera(),this.showCellSun()}setMoment(e,t){this.day=e,this.minute=t,this.sunOn=!0,this.sunCard?.setAttribute("open",""),this.showSun()}buildSection(){let e=X("select",{"aria-label":"Section plane"},X("option",{value:""},"None"),X("option",{value:"z"},"Cut off above a height"),X("option",{value:"y"},"Cut off beyond a place on Y"),X("option",{value:"x"},"Cut off beyond a place on X")),t=X("input",{type:"range",min:0,max:1,step:.002,value:.5,"aria-label":"Place of the section"}),n=X("input",{type:"checkbox"}),s=X("span"),r=X("div",{hidden:!0},t,X("div",{class:"clock"},X("label",{},n,"the other half"),s)),o=()=>{if(this.isCut=e.value!=="",r.hidden=!this.isCut,this.isCut){this.section={axis:e.value,place:Number(t.value),flipped:n.checked};let a=this.view.sectionPlace(this.section);s.textContent=`${a.toFixed(1)} m`,t.setAttribute("aria-valuetext",s.textContent)}this.view.setSection(this.isCut?this.section:null)};for(let a of[e,t,n])a.addEventListener("input",o);return X("details",{},X("summary",{},"Section"),e,r)}buildLook(){let e=X("select",{id:"around"},X("option",{value:"solid"},"solid"),X("option",{value:"lines"},"as lines"),X("option",{value:"none"},"hidden"));e.addEventListener("change",()=>{for(let n of this.view.models)n.showSurroundings(e.value);this.view.draw()});let t=X("select",{id:"steps"},X("option",{value:0},"without steps"));for(let n of[5,6,8,10,12])t.append(X("option",{value:n},`in ${n} steps`));return t.addEventListener("change",()=>{this.colorSteps=Number(t.value),this.paint()}),X("details",{},X("summary",{},"Appearance"),X("label",{class:"field",for:"around"},"Surroundings"),e,X("label",{class:"field",for:"steps"},"Colours"),t)}buildFacts(){let e=(s,r)=>[X("dt",{},X("kbd",{},s)),X("dd",{},r)],t=this.results.reduce((s,{record:r})=>s+r.warnings.length,0),n=X("details",{},X("summary",{},"About this study",t>0&&X("span",{class:"badge"},`${t} ${t===1?"warning":"warnings"}`)));return this.results.forEach(s=>{let{record:r}=s;this.results.length>1&&n.append(X("p",{class:"caption"},X("bdi",{},r.name.slice(0,200)))),n.append(X("dl",{},...r.facts.flatMap(([o,a])=>[X("dt",{},o),X("dd",{},X("bdi",{},a))])),...r.warnings.map(o=>X("p",{class:"warn"},o)),r.left_out&&X("p",{class:"quiet"},`To keep the page small, ${r.left_out}.`))}),n.append(X("p",{class:"caption"},"Keyboard"),X("dl",{},...e("arrows","turn; with Shift move"),...e("+ \u2212","zoom"),...e("0","the whole model"),...e("F","fit to what is chosen"),...e("T N E S W","from above, from a side"),...e("P","perspective or parallel"),...e("Esc","let go of the cell, the group, the filter")),X("details",{},X("summary",{},"Licences"),X("p",{class:"quiet"},"The script of this page holds these libraries:"),X("pre",{},y0))),n}toolbar(){let e=(t,n,s)=>X("button",{type:"button",title:t,"aria-label":t,click:s},n);this.parallelButton=e("Parallel projection (P)",Si("M4 8l8-4 8 4v8l-8 4-8-4zM4 8l8 4 8-4M12 12v8"),()=>this.toggleParallel()),this.parallelButton.setAttribute("aria-pressed","false"),this.stage.append(X("div",{id:"bar",role:"toolbar","aria-label":"View"},e("The whole model (0)",Si("M4 9V4h5M15 4h5v5M20 15v5h-5M9 20H4v-5"),()=>this.view.look(155,42)),e("Fit to what is chosen (F)",Si("M12 3v3M12 18v3M3 12h3M18 12h3M12 8.500a3.500 3.500 0 1 1 0 7 3.500 3.500 0 0 1 0-7z"),()=>this.fit()),X("i"),e("Top, from above (T)","Top",()=>this.view.look(180,90)),e("From the north (N)","N",()=>this.view.look(0,0)),e("From the east (E)","E",()=>this.view.look(90,0)),e("From the south (S)","S",()=>this.view.look(180,0)),e("From the west (W)","W",()=>this.view.look(270,0)),this.parallelButton,X("i",{}),e("Save the picture as PNG",Si("M4 7h3l1.500-2h7L17 7h3v12H4zM12 9.500a3.500 3.500 0 1 1 0 7 3.500 3.500 0 0 1 0-7z"),()=>{this.savePicture()}),e("Save the cells in view as CSV",Si("M12 4v11M7.500 11l4.500 4.500 4.500-4.500M4.500 19.500h15"),()=>this.saveTable())))}toggleParallel(){this.view.setParallel(!this.view.isParallel),this.parallelButton.setAttribute("aria-pressed",String(this.view.isParallel))}fit(){let e=this.shownModels()[0],t=this.view.models[e],{azimuth:n,altitude:s}=this.view.bearing(),r=this.column,o=this.range,a=this.pinned&&!this.isolated&&!o&&!this.shown?this.pinned.sensor:null,l=t.boxOf(c=>{if(a!==null)return c===a;let h=r.at(c);return(!this.shown||this.shown[c]===1)&&(!o||h>=o[0]&&h<=o[1])});a!==null&&l.expandByScalar(6),this.view.look(n,s,l)}keyboard(){window.addEventListener("keydown",e=>{let t=e.target;if(e.ctrlKey||e.metaKey||e.altKey||/^(INPUT|SELECT|TEXTAREA)$/.test(t.tagName))return;if(e.key==="Escape"){this.range=null,this.isolated=null,this.pinned=null,this.groups.choose(null),this.refresh();return}let n=t===this.canvas||t===document.body,r={ArrowLeft:[-1,0],ArrowRight:[1,0],ArrowUp:[0,1],ArrowDown:[0,-1]}[e.key];if(r&&n){e.preventDefault(),e.shiftKey?this.view.pan(.06*r[0],.06*r[1]):this.view.orbit(-8*r[0],6*r[1]);return}let a={t:[180,90],n:[0,0],e:[90,0],s:[180,0],w:[270,0],0:[155,42],Home:[155,42]}[e.key.length===1?e.key.toLowerCase():e.key];a?this.view.look(a[0],a[1]):e.key==="+"||e.key==="="?this.view.zoom(.85):e.key==="-"?this.view.zoom(1/.85):e.key.toLowerCase()==="f"?this.fit():e.key.toLowerCase()==="p"&&this.toggleParallel()})}pointer(){let e=null,t=!1,n=null;this.canvas.addEventListener("pointermove",s=>{if(s.buttons!==0||s.pointerType==="touch"){this.hint.hidden=!0;return}e={x:s.offsetX,y:s.offsetY},t||(t=!0,requestAnimationFrame(()=>{t=!1,e&&this.showHint(e.x,e.y)}))}),this.canvas.addEventListener("pointerleave",()=>{e=null,this.hint.hidden=!0}),this.canvas.addEventListener("pointerdown",s=>{n={x:s.offsetX,y:s.offsetY}}),this.canvas.addEventListener("pointerup",s=>{n&&Math.hypot(s.offsetX-n.x,s.offsetY-n.y)<5&&(this.pinned=this.view.pick(s.offsetX,s.offsetY),this.cellCard.open=!0,this.showPinned(),this.pinned&&this.app.clientWidth<=760&&(this.app.classList.remove("low"),this.panel.scrollTop=0)),n=null}),this.canvas.addEventListener("dblclick",()=>this.fit())}describe(e){let{model:t,sensor:n}=e,s=t.result,r=t.column??this.column,o=[],a=As(s,"object",n),l=As(s,"material",n);(a||l)&&o.push([a,l].filter(Boolean).map(d=>d.slice(0,120)).join(" \xB7 "));let c=[this.orientation(s,n),this.areaText(s,n)].filter(Boolean).join(", ");c&&o.push(c);let h=this.peakText(s,n);if(h&&o.push(h),this.isEnclosed(e))return{value:"enclosed",unit:"",lines:o};let u=this.othersOf(e);return o.push(...u.map(([d,f])=>`${d}: ${f}`)),{value:r.text(r.at(n)),unit:ni(r.unit),lines:o}}isEnclosed({model:e,sensor:t}){return e.result.enclosed?.[t]===1}othersOf({model:e,sensor:t}){let{compared:n}=this;return n.length<2||!n.every(s=>_l(n[0],s))?[]:n.flatMap(s=>{let r=this.columnOf(s);return r&&(this.mode.kind==="difference"||s!==e.result)?[[s.record.name.slice(0,60),`${r.text(r.at(t))} ${ni(r.unit)}`]]:[]})}orientation(e,t){if(e.cells.side[t]===Xo)return"";let[n,s,r]=fl(is(e.cells,t)),o=Math.acos(Math.min(Math.max(r,-1),1))*180/Math.PI;if(o<1)return"level, faces up";if(o>179)return"level, faces down";let a=Math.atan2(n,s)*180/Math.PI-e.record.north;return`faces ${fu(a)}, tilt ${o.toFixed(0)}\xB0`}areaText(e,t){return e.cells.hasAreas?`${Hn(e.cells.area[t],2)} m\xB2`:""}peakText(e,t){let n=e.columnNamed("peak"),s=e.columnNamed("peak_hour");if(!n||!Number.isFinite(n.at(t)))return"";let r=s&&s.at(t)>0?` on ${al(s.at(t))}`:"";return`peak ${n.text(n.at(t))} ${ni(n.unit)}${r}`}showHint(e,t){let n=this.view.pick(e,t);if(this.hint.hidden=n===null,!n)return;let{value:s,unit:r,lines:o}=this.describe(n);this.hint.replaceChildren(X("b",{},s),` ${r}`,...o.map(u=>X("span",{},X("bdi",{},u))));let{clientWidth:a,clientHeight:l}=this.stage,c=this.hint.offsetWidth,h=this.hint.offsetHeight;this.hint.style.left=`${e+16+c>a?e-c-12:e+16}px`,this.hint.style.top=`${Math.min(Math.max(t+14,4),l-h-4)}px`}showPinned(){for(let p of this.view.models)p.mark(this.pinned&&this.pinned.model===p?this.pinned.sensor:null);if(this.cellCard.hidden=this.pinned===null,this.followCamera(),this.view.draw(),!this.pinned)return;let{model:e,sensor:t}=this.pinned,n=e.result,{value:s,unit:r}=this.describe(this.pinned);this.said.textContent=`${s} ${r}`;let o=this.othersOf(this.pinned),a=this.isEnclosed(this.pinned);a||n.record.columns.forEach((p,y)=>{if(p.unit!=="hour of year"){let m=n.column("column",y);o.push([p.title,`${m.text(m.at(t))} ${ni(p.unit)}`])}});let l=As(n,"object",t),c=As(n,"material",t);l&&o.push(["Object",l.slice(0,300)]),c&&o.push(["Material",c.slice(0,300)]);let h=this.orientation(n,t);h&&o.push(["Orientation",h]),n.cells.hasAreas&&o.push(["Area",this.areaText(n,t)]),o.push(["Number",`${t}, as in sensors.csv`]);let u=n.columnNamed("peak_hour"),d=u?u.at(t):NaN;this.clearCharts(this.cellPlace),this.cellPlace.replaceChildren(X("div",{class:"value"},s," ",X("small",{},r)),a?X("p",{class:"quiet"},"It looks into closed geometry, as inside of a body, and is left out of colours and sums."):"",this.cellSun,X("dl",{},...o.flatMap(([p,y])=>[X("dt",{},p),X("dd",{},X("bdi",{},y))]))),this.showCellSun(),d>0&&this.cellPlace.append(X("p",{class:"quiet"},`Peak on ${al(d)}.`),this.sunPath?X("button",{type:"button",class:"solid",click:()=>this.setMoment(Math.floor((d-1)/24)+1,(d-1)%24*60+30)},"Show the sun of the peak"):""),this.chartSteps(n,t);let f=[["object",l],["material",c],["object,material",`${l}, ${c}`]];this.chartHours(this.cellPlace,n.series.find(p=>p.sensor===t)??f.map(([p,y])=>b0(n,p,y)).find(p=>p!==void 0)??n.series.find(p=>p.label==="all"),n.record.days)}showCellSun(){if(this.cellSun.hidden=!this.sunOn||this.pinned===null,this.pinned&&this.sunOn){let e=this.view.isLit(this.pinned.model,this.pinned.sensor);this.cellSun.textContent=`${e?"In the sun":"Without sun"} on ${Gr(this.day)} at ${js(this.minute)}.`}}showGroup(e){let t=this.isolated;if(this.groupCard.hidden=t===null,this.clearCharts(this.groupPlace),!t)return;let{names:n,of:s}=ml(this.first,t.kind),r=Vo(this.first.cells,e,s,n.length)[n.indexOf(t.name)],o=ni(e.unit),a=[[this.first.cells.hasAreas?"Cells":"Points",Wr(r.cells,0)],["Mean",`${Ho(r.mean,e.unit)} ${o}`],["Range",r.cells>0?`${this.spanText(e,r.lowest,r.highest)} ${o}`:"\u2013"]];this.groupPlace.replaceChildren(X("p",{class:"name"},X("bdi",{},t.name.slice(0,300)||"(no name)")),X("dl",{},...a.flatMap(([l,c])=>[X("dt",{},l),X("dd",{},c)]))),this.chartHours(this.groupPlace,b0(this.first,t.kind,t.name),this.first.record.days)}clearCharts(e){for(let t of this.charts.get(e)??[])t.destroy();this.charts.set(e,[])}chartSteps(e,t){let{steps:n}=e.record;if(n.length<2||this.isEnclosed({model:this.model,sensor:t}))return;let s=n.map((l,c)=>e.column("step",c).at(t)),r=ni(n[0].unit),o=X("div");this.cellPlace.append(X("p",{class:"caption"},`Through the period, ${r}`),o);let a=n.map(l=>Qp(l.name));this.charts.get(this.cellPlace)?.push(mu(o,s,{names:a,unit:r,width:this.chartWidth(),bars:!0,label:"Through the period"}))}chartWidth(){return Math.max(this.panel.clientWidth-40,200)}chartHours(e,t,n){if(!t)return;let s=t.sensor!==null?"of the cell":t.label==="all"?"of all cells":`of ${t.label.slice(0,80)}`,r=X("canvas",{class:"carpet",role:"img","aria-label":`Radiation of each hour of the year ${s}`}),o=X("div");e.append(X("p",{class:"caption"},X("bdi",{},`Every hour of the year ${s}`),": hours upwards, months across"),r,X("p",{class:"caption"},"Mean day, W/m\xB2"),o),em(r,t.hours),this.charts.get(e)?.push(mu(o,tm(t.hours,n),{unit:"W/m\xB2",width:this.chartWidth(),bars:!1,label:"Mean day"}))}scaleBar(){let e=this.view.height,t=this.canvas.clientHeight||1,n=10**Math.floor(Math.log10(e*120/t));for(let s of[5,2])if(n*s*t/e<=130){n*=s;break}return{words:n>=1e3?`${n/1e3} km`:`${Number(n.toPrecision(2))} m`,wide:n*t/e}}followCamera(){let{azimuth:e,altitude:t}=this.view.bearing(),{words:n,wide:s}=this.scaleBar(),r=X("div",{class:"length"},X("span",{},n));r.style.width=`${s}px`,this.scale.replaceChildren(oE(e,t),r);let o=this.pinned,a=o&&(o.model===this.view.models[this.shownModels()[0]]||this.mode.kind==="beside")?this.view.cellOnScreen(o.model,o.sensor):null;this.pin.hidden=a===null,a&&(this.pin.style.left=`${a.x}px`,this.pin.style.top=`${a.y}px`);for(let l of this.hours){let c={azimuth:Number(l.dataset.azimuth),altitude:Number(l.dataset.altitude)},h=this.view.onDome(c);l.hidden=h===null,h&&(l.style.left=`${h.x}px`,l.style.top=`${h.y}px`)}}async savePicture(){Nh(`${S0(this.first.record.name)}.png`,await this.picture())}picture(){let e=this.view.snapshot(),t=e.width/Math.max(this.canvas.clientWidth,1),n=document.createElement("canvas");n.width=e.width,n.height=e.height;let s=n.getContext("2d");if(!s)return Promise.reject(new Error("no canvas"));let r=getComputedStyle(document.documentElement),o=r.getPropertyValue("--ink");s.drawImage(e,0,0),s.scale(t,t);let a=n.width/t,l=n.height/t,c=this.column,h=this.scaleOf(c),u=gu(this.first.cells,c,h.lowest,h.highest,tr.bins,this.shown),d=(v,A,S,C,T=!1)=>{s.fillStyle=o,s.textAlign="left",s.textBaseline="alphabetic",s.font=`${T?"600 ":""}${C}px system-ui, sans-serif`,s.fillText(v,A,S,a-A-12)},{record:f}=this.first,p=v=>f.facts.find(A=>A[0]===v)?.[1]??"",y=this.mode.kind==="one"?f.name:this.results.map(v=>v.record.name).join(" / ");d(y.slice(0,120),18,32,20,!0),d([this.columnTitle(c),ni(c.unit)].filter(Boolean).join(", "),18,54,14);let m=[this.sunOn?`shadows of ${Gr(this.day)}, ${js(this.minute)}`:"",this.isolated?this.isolated.name.slice(0,80)||"(no name)":"",this.filterText(c)];if(d(m.filter(Boolean).join(" \xB7 "),18,74,12),this.mode.kind==="beside"){let v=this.shownModels();v.forEach((A,S)=>{d(this.results[A].record.name.slice(0,60),a*(S+.5)/v.length-30,l-66,13)})}d([p("Site"),p("Period"),p("Rule"),p("Method")&&`${p("Method")} method`,p("Version")].filter(Boolean).join(" \xB7 "),18,l-14,11.5),this.drawScale(s,18,l-40,r),s.save(),s.translate(a-160,24);let g=Math.min(240,l-80);return yu(s,this.legendContent(c,h,u),144,g,!0),s.restore(),new Promise((v,A)=>{n.toBlob(S=>S?v(S):A(new Error("the picture is too large")),"image/png")})}drawScale(e,t,n,s){let{azimuth:r,altitude:o}=this.view.bearing(),{needle:a,flat:l,letter:c}=M0(r,o),{words:h,wide:u}=this.scaleBar();e.save(),e.translate(t,n-46),e.lineWidth=1.4,e.strokeStyle=s.getPropertyValue("--soft"),e.beginPath(),e.ellipse(23,23,16,16*l,0,0,2*Math.PI),e.stroke(),e.fillStyle=s.getPropertyValue("--accent"),e.beginPath(),a.forEach(([d,f])=>e.lineTo(d,f)),e.fill(),e.fillStyle=s.getPropertyValue("--ink"),e.textAlign="center",e.textBaseline="middle",e.font="600 11px system-ui, sans-serif",e.fillText("N",c[0],c[1]),e.beginPath(),e.moveTo(64,39),e.lineTo(64,46),e.lineTo(64+u,46),e.lineTo(64+u,39),e.stroke(),e.font="12px system-ui, sans-serif",e.fillText(h,64+u/2,36),e.restore()}saveTable(){Nh(`${S0(this.first.record.name)}.csv`,new Blob([this.table()],{type:"text/csv"}))}table(){let e=this.first,{cells:t,record:n}=e,s=this.column,r=n.columns.map((l,c)=>e.column("column",c));r.includes(s)||r.push(s);let o=["sensor","x [m]","y [m]","z [m]","object","material","faces"];e.enclosed&&o.push("enclosed"),t.hasAreas&&o.push("area [m2]"),o.push(...r.map(l=>ll(`${l===s&&!n.columns.some(c=>c.title===l.title)?l.title:l.name} [${l.unit}]`)));let a=[o.join(",")];for(let l=0;l<t.count;++l){let c=s.at(l);if(this.shown&&this.shown[l]===0||this.range&&!(c>=this.range[0]&&c<=this.range[1]))continue;let h=is(t,l),u=[0,1,2].map(f=>n.origin[f]+h.reduce((p,y)=>p+y[f],0)/h.length),d=[String(l),...u.map(f=>f.toFixed(3)),ll(As(e,"object",l)),ll(As(e,"material",l)),As(e,"side",l)];e.enclosed&&d.push(String(e.enclosed[l])),t.hasAreas&&d.push(t.area[l].toPrecision(4)),d.push(...r.map(f=>Number.isFinite(f.at(l))?f.at(l).toFixed(Math.max(0,f.decimals)):"")),a.push(d.join(","))}return`${a.join(`
`)}
`}get model(){return this.view.models[this.shownModels()[0]]}};function b0(i,e,t){return i.series.find(n=>n.sensor===null&&t!==""&&n.label===`${e} ${t}`)}function S0(i){return i.replace(/[^\p{L}\p{N}._-]+/gu,"-").slice(0,60)||"results"}function M0(i,e){let t=Math.max(Math.abs(Math.sin(e*Math.PI/180)),.12),n=(180-i)*Math.PI/180,s=(a,l)=>[23+l*Math.sin(n+a),23-t*l*Math.cos(n+a)],[r,o]=s(0,22.5);return{needle:[s(0,14),s(2.5,6),s(Math.PI,2),s(-2.5,6)],flat:t,letter:[r,t<.3?o-6*Math.sign(Math.cos(n)||1):o]}}function oE(i,e){let t="http://www.w3.org/2000/svg",{needle:n,flat:s,letter:r}=M0(i,e),o=(l,c)=>{let h=document.createElementNS(t,l);for(let[u,d]of Object.entries(c))h.setAttribute(u,d);return a.append(h),h},a=document.createElementNS(t,"svg");return a.setAttribute("viewBox","0 0 46 46"),o("ellipse",{cx:"23",cy:"23",rx:"16",ry:(16*s).toFixed(1),stroke:"var(--soft)"}),o("path",{d:`M${n.map(l=>l.map(c=>c.toFixed(1)).join(" ")).join("L")}Z`,fill:"var(--accent)",stroke:"none"}),o("text",{x:r[0].toFixed(1),y:r[1].toFixed(1)}).textContent="N",a}async function aE(){let i=Array.from(document.querySelectorAll("script.result"),s=>s.id),e=new Go(await window.insolateUnpack(i[0]));document.head.append(X("style",{},Sf+bf)),document.documentElement.classList.add("live");let t=new Mh(document.body);t.begin(e),window.insolateReady=performance.now();let n=await Promise.all(i.slice(1).map(window.insolateUnpack));t.complete(n.map(s=>new Go(s))),window.insolatePage=t}aE().catch(i=>{throw document.documentElement.classList.remove("live"),document.getElementById("app")?.remove(),window.insolateRefuse(`The page cannot be shown (${i instanceof Error?i.message:String(i)}). The picture below shows the results as they are.`),i});})();
